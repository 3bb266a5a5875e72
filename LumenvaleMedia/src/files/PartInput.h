#pragma once

// One input of a join: a part file (or any movie) opened for stream copy, with what
// the container lists about it and a packet reader that keeps everything up to a
// cut-off end. Internal to the recording-files area.

#include "ffmpeg/Handles.h"

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace lumenvale::files {

class FileWindow;

// Threads: one thread at a time. Owns its demuxer and its file descriptor.
class PartInput {
  public:
    // Opens `path` as untrusted input, reading its header only. An MPEG-4 file that
    // ends inside a box other than the samples (its writer was killed while writing a
    // fragment's header) is read up to its last whole box. Throws MediaError when it is
    // missing, unreadable or not a movie.
    explicit PartInput(std::filesystem::path path);
    ~PartInput();
    PartInput(const PartInput&) = delete;
    PartInput& operator=(const PartInput&) = delete;

    const std::filesystem::path& path() const { return path_; }
    AVFormatContext& format() const { return *input_; }

    // The first video stream (nullptr when there is none) and the audio streams in
    // file order: the streams a join copies. Cover pictures and data are left out.
    AVStream* video() const { return video_; }
    const std::vector<AVStream*>& audio() const { return audio_; }
    // The stream whose duration is the part's: the video, else the first audio.
    AVStream* timing() const;

    // The part's duration in seconds as its container lists it (of the timing stream);
    // 0 when it lists nothing to play.
    double listedSeconds() const;
    // Where the timing stream starts, in its time base, as listed.
    std::int64_t listedStart() const;
    // How many samples the container lists for the copied streams, when it lists
    // them all up front (MPEG-4 does, also for fragments); an upper bound of what can
    // be read from a cut-off file.
    std::optional<std::int64_t> listedSamples() const;

    // A container tag ("lumenvale_part", ...), when present.
    std::optional<std::string> tag(const char* key) const;

    // The next packet of a copied stream, in file order. False at the end of what can
    // be read: the regular end, or a damaged or cut-off tail (a packet cut short by the
    // end of the file is left out). Throws MediaError when reading fails for another
    // reason (an I/O error), so nothing is lost silently.
    //
    // When the container lists every sample up front (MPEG-4), packets come from that
    // list without reading their bytes: `packet.data` is null, and the packet's
    // `packet.size` bytes are at `packet.pos` in fileDescriptor(), to be copied file to
    // file. Otherwise the bytes are read into the packet.
    bool next(AVPacket& packet);

    // The part's file, open for reading, for copying listed samples.
    int fileDescriptor() const { return fd_; }

    // Makes the picture and the sound end together, for a recording's last part: leaves
    // out the frames shown only after every audio track has ended, cuts the last frame
    // kept short at the sound's end, then leaves out the sound that starts after the
    // picture. A part cut off by a crash has more sound than picture (sound leaves its
    // encoder sooner), or less when the file ends inside a fragment's sound; a
    // finished part's tracks already end within one sound packet of each other. Call
    // before the first packet; does nothing when the packets are not read from the
    // container's list.
    void endTracksTogether();

    // True when the part lists picture but no sound in any of its audio tracks, while
    // it has audio tracks: the last parts of a recording killed before their sound left
    // its encoder. False when the packets are not read from the container's list.
    bool pictureWithoutSound();

  private:
    // A sample as the container lists it.
    struct Sample {
        int stream = 0;
        std::int64_t dts = 0; // = pts: listed samples are used only without reordering
        std::int64_t duration = 0;
        std::int64_t position = 0;
        int size = 0;
        bool key = false;
    };

    void open();
    // Decides, at the first packet, whether packets come from the container's list.
    void chooseReading();
    bool readPacket(AVPacket& packet);
    std::vector<Sample> listedSamplesInFileOrder() const;
    bool listAgreesWithPackets(const std::vector<Sample>& samples);

    std::filesystem::path path_;
    int fd_ = -1;
    // Set when the file ends inside a box (a writer stopped mid-write): the demuxer then
    // sees the file up to its last whole box. Outlives input_.
    std::unique_ptr<FileWindow> window_;
    ff::InputContext input_;
    AVStream* video_ = nullptr;
    std::vector<AVStream*> audio_;
    std::vector<bool> copied_;    // by stream index
    std::vector<bool> cutOff_;    // by stream index: a packet was cut short
    std::vector<Sample> samples_; // when packets come from the list
    std::size_t nextSample_ = 0;
    bool readingChosen_ = false;
    bool fromList_ = false;
};

// Whether the file open at `fd` holds no recorded picture or sound at all: it is
// empty, or an MPEG-4 header without samples (an "ftyp", then only "moov", "free",
// "skip" or "wide" boxes, the last one maybe cut short), which is what a part writer
// killed before its first fragment leaves. Reads the box headers only.
bool holdsNoSamples(int fd);

} // namespace lumenvale::files
