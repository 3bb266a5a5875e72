#include "capture/XRes.h"

#include "capture/XcbHandles.h"

#include <cstring>
#include <sys/uio.h>

namespace lumenvale::x11 {

xcb_extension_t xresExtension = {"X-Resource", 0};

namespace {

constexpr std::uint8_t queryVersionOpcode = 0;
constexpr std::uint8_t queryClientIdsOpcode = 4;
constexpr std::uint32_t localClientPidMask = 2;

struct VersionRequest {
    std::uint8_t majorOpcode; // filled in by xcb
    std::uint8_t minorOpcode; // filled in by xcb
    std::uint16_t length;     // filled in by xcb
    std::uint8_t clientMajor;
    std::uint8_t clientMinor;
    std::uint16_t pad;
};
static_assert(sizeof(VersionRequest) == 8);

struct VersionReply {
    std::uint8_t responseType;
    std::uint8_t pad0;
    std::uint16_t sequence;
    std::uint32_t length;
    std::uint16_t serverMajor;
    std::uint16_t serverMinor;
};

struct ClientIdsRequest {
    std::uint8_t majorOpcode;
    std::uint8_t minorOpcode;
    std::uint16_t length;
    std::uint32_t specCount;
    std::uint32_t client; // None: every client
    std::uint32_t mask;
};
static_assert(sizeof(ClientIdsRequest) == 16);

struct ClientIdsReplyHeader {
    std::uint8_t responseType;
    std::uint8_t pad0;
    std::uint16_t sequence;
    std::uint32_t length; // in 4-byte units after the first 32 bytes
    std::uint32_t idCount;
    std::uint8_t pad1[20];
};
static_assert(sizeof(ClientIdsReplyHeader) == 32);

unsigned int send(xcb_connection_t* connection, std::uint8_t opcode, void* request,
                  std::size_t size) {
    iovec parts[3];
    parts[2].iov_base = request;
    parts[2].iov_len = size;
    xcb_protocol_request_t protocol{1, &xresExtension, opcode, 0};
    return xcb_send_request(connection, XCB_REQUEST_CHECKED, parts + 2, &protocol);
}

} // namespace

unsigned int requestXResVersion(xcb_connection_t* connection) {
    VersionRequest request{0, 0, 0, 1, 2, 0};
    return send(connection, queryVersionOpcode, &request, sizeof request);
}

bool xresVersionAtLeast12(xcb_connection_t* connection, unsigned int sequence) {
    Reply<VersionReply> reply{
        static_cast<VersionReply*>(xcb_wait_for_reply(connection, sequence, nullptr))};
    return reply &&
           (reply->serverMajor > 1 || (reply->serverMajor == 1 && reply->serverMinor >= 2));
}

std::vector<std::uint32_t> clientBasesOfProcess(xcb_connection_t* connection, std::uint32_t pid) {
    ClientIdsRequest request{0, 0, 0, 1, XCB_NONE, localClientPidMask};
    const unsigned int sequence = send(connection, queryClientIdsOpcode, &request, sizeof request);
    Reply<std::uint8_t> reply{
        static_cast<std::uint8_t*>(xcb_wait_for_reply(connection, sequence, nullptr))};
    std::vector<std::uint32_t> bases;
    if (!reply) {
        return bases;
    }
    ClientIdsReplyHeader header;
    std::memcpy(&header, reply.get(), sizeof header);
    const std::size_t total = sizeof header + std::size_t{header.length} * 4;
    std::size_t offset = sizeof header;
    // Each entry: client, mask, value length in bytes, then the value's 32-bit words.
    for (std::uint32_t index = 0; index < header.idCount && offset + 12 <= total; ++index) {
        std::uint32_t fields[3];
        std::memcpy(fields, reply.get() + offset, sizeof fields);
        offset += sizeof fields;
        const std::uint32_t valueBytes = fields[2];
        if (offset + valueBytes > total) {
            break;
        }
        if ((fields[1] & localClientPidMask) != 0 && valueBytes == 4) {
            std::uint32_t value = 0;
            std::memcpy(&value, reply.get() + offset, sizeof value);
            if (value == pid) {
                bases.push_back(fields[0]);
            }
        }
        offset += valueBytes;
    }
    return bases;
}

} // namespace lumenvale::x11
