#pragma once

// The MPEG-4 file an export writes, indexed at its front: its streams, packet
// interleaving, progress by output time, cancellation, and publication under its name
// once complete (nothing is left behind when the export fails). Internal to the edit
// area. Used by the one thread that exports.

#include "LumenvaleMedia/EditRenderer.h"
#include "edit/FileOutput.h"
#include "ffmpeg/Handles.h"

#include <atomic>
#include <filesystem>
#include <vector>

namespace lumenvale::edit {

enum class SampleEntry { asSource, parameterSetsInBand };

class MovieWriter {
  public:
    // Starts the file that becomes `destination` (FileOutput); `outputSeconds` is the
    // length of the result, against which progress is measured.
    MovieWriter(const EditRenderer::Destination& destination, double outputSeconds,
                const EditRenderer::Progress& progress, const std::atomic<bool>* cancel);
    // The file goes unless publish() succeeded.
    ~MovieWriter();
    MovieWriter(const MovieWriter&) = delete;
    MovieWriter& operator=(const MovieWriter&) = delete;

    // Packets with `source`'s stand-in bytes are copied file to file.
    void copyFrom(const SourceBytes* source) { file_.copyFrom(source); }

    // Adds a stream copied from `source`: codec parameters, metadata, disposition; its
    // sample entry as the source's, or one whose samples may carry their own parameter
    // sets (avc3 / hev1). Returns the new stream's index.
    int addCopiedStream(const AVStream* source, AVRational timeBase,
                        SampleEntry entry = SampleEntry::asSource);
    // Adds a stream written from an encoder's output, with `source`'s metadata and
    // disposition.
    int addEncodedStream(const AVStream* source, const AVCodecContext& encoder,
                         AVRational timeBase);
    // Copies the movie-level tags worth keeping (title, comment, creation date, ...).
    void copyMovieTags(const AVFormatContext* source);

    // Writes the header; call after all streams are added.
    void start();

    // Hands a packet to the interleaver, timestamps in the time base the stream was
    // added with; the packet's contents are taken over. Throws on a write error.
    void write(int stream, AVPacket* packet);

    // Throws MediaError("The export was cancelled.") when cancellation was asked for.
    void checkCancel() const;

    // Flushes the interleaver and writes the index in front of the samples (which moves
    // them once more, the longer the movie the longer): the file is complete.
    void finish();
    // Puts the complete file under its name, reports progress 1 and returns the path.
    std::filesystem::path publish();

  private:
    // Throws the file's own sentence when writing it failed, else ff::check's.
    void check(int code, const char* doing) const;
    // The source stream's disposition, tags and stream-wide side data, on `stream`.
    static void keepDescription(const AVStream* source, AVStream* stream);
    void reportProgress(double outputSeconds);

    FileOutput file_;
    ff::OutputContext output_; // its I/O is file_'s, detached before either is closed
    double outputSeconds_ = 0;
    const EditRenderer::Progress& progress_;
    const std::atomic<bool>* cancel_ = nullptr;
    std::vector<AVRational> timeBases_; // as the streams were added, before the muxer's own
    double reportedFraction_ = -1;
};

} // namespace lumenvale::edit
