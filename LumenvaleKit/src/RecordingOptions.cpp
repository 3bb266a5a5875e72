#include "LumenvaleKit/RecordingOptions.h"

#include "JsonCoding.h"

namespace lumenvale {

using jsoncoding::Invalid;
using jsoncoding::Json;

namespace {

// Every key is decode-if-present: missing or null keeps the default; a value of the
// wrong type fails the whole record.
RecordingOptions readOptions(const Json& object) {
    RecordingOptions options;
    const auto readBoolInto = [&](const char* key, bool& field) {
        if (const Json* value = jsoncoding::optionalField(object, key)) {
            field = jsoncoding::readBool(*value, key);
        }
    };
    const auto readStringInto = [&](const char* key, std::optional<std::string>& field) {
        if (const Json* value = jsoncoding::optionalField(object, key)) {
            field = jsoncoding::readString(*value, key);
        }
    };
    if (const Json* fps = jsoncoding::optionalField(object, "fps")) {
        options.fps = jsoncoding::readInteger(*fps, "fps");
    }
    if (const Json* codec = jsoncoding::optionalField(object, "codec")) {
        const std::string raw = jsoncoding::readString(*codec, "codec");
        const std::optional<Codec> known = codecFromRawValue(raw);
        if (!known) {
            throw Invalid{"\"codec\" must be \"h264\" or \"hevc\", not \"" + raw + "\"."};
        }
        options.codec = *known;
    }
    readBoolInto("showsPointer", options.showsPointer);
    readBoolInto("showsClicks", options.showsClicks);
    readBoolInto("countdown", options.countdown);
    readBoolInto("systemAudio", options.systemAudio);
    readBoolInto("microphone", options.microphone);
    readStringInto("microphoneID", options.microphoneID);
    readBoolInto("camera", options.camera);
    if (const Json* diameter = jsoncoding::optionalField(object, "bubbleDiameter")) {
        options.bubbleDiameter = jsoncoding::readNumber(*diameter, "bubbleDiameter");
    }
    if (const Json* frame = jsoncoding::optionalField(object, "bubbleFrame")) {
        options.bubbleFrame = jsoncoding::readRect(*frame, "bubbleFrame");
    }
    readStringInto("folderPath", options.folderPath);
    return options;
}

} // namespace

std::string encode(const RecordingOptions& options) {
    Json document = Json::object();
    document["fps"] = options.fps;
    document["codec"] = std::string(rawValue(options.codec));
    document["showsPointer"] = options.showsPointer;
    document["showsClicks"] = options.showsClicks;
    document["countdown"] = options.countdown;
    document["systemAudio"] = options.systemAudio;
    document["microphone"] = options.microphone;
    if (options.microphoneID) {
        document["microphoneID"] = *options.microphoneID;
    }
    document["camera"] = options.camera;
    document["bubbleDiameter"] = options.bubbleDiameter;
    if (options.bubbleFrame) {
        document["bubbleFrame"] = jsoncoding::writeRect(*options.bubbleFrame);
    }
    if (options.folderPath) {
        document["folderPath"] = *options.folderPath;
    }
    return jsoncoding::write(document);
}

Result<RecordingOptions> decodeRecordingOptions(std::string_view json) {
    return jsoncoding::decodeDocument<RecordingOptions>(json, "The recording options are not valid",
                                                        readOptions);
}

} // namespace lumenvale
