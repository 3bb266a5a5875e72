#include "edit/SourceMovie.h"

#include "LumenvaleKit/Checked.h"

extern "C" {
#include <libavutil/dict.h>
}

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <fstream>
#include <numeric>
#include <string_view>
#include <sys/stat.h>

namespace lumenvale::edit {
namespace {

constexpr const char* mixTrackName = "System audio and microphone";

bool hasTag(const AVStream* stream, const char* key, const char* value) {
    const AVDictionaryEntry* entry = av_dict_get(stream->metadata, key, nullptr, 0);
    return entry != nullptr && std::strcmp(entry->value, value) == 0;
}

// A movie whose index names samples beyond the end of the file was cut short (a
// copy that stopped early, a disk that filled up): refuse it rather than export
// a silently shorter result.
bool indexReachesPastEnd(const SourceMovie& movie) {
    const std::int64_t fileBytes = avio_size(movie.input->pb);
    if (fileBytes <= 0) {
        return false;
    }
    for (unsigned i = 0; i < movie.input->nb_streams; ++i) {
        AVStream* stream = movie.input->streams[i];
        const int entries = avformat_index_get_entries_count(stream);
        if (entries <= 0) {
            continue;
        }
        const AVIndexEntry* last = avformat_index_get_entry(stream, entries - 1);
        if (last != nullptr && last->pos + last->size > fileBytes) {
            return true;
        }
    }
    return false;
}

// An MPEG-4 or QuickTime file opens with an 'ftyp' box; one that the demuxer still
// cannot open lost its index (a copy or recording cut short).
bool looksLikeMpeg4(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    char head[8] = {};
    return file.read(head, sizeof head) && std::memcmp(head + 4, "ftyp", 4) == 0;
}

FileStamp stampOf(const std::filesystem::path& path) {
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0) {
        return FileStamp{};
    }
    return FileStamp{status.st_dev, status.st_ino, status.st_size,
                     status.st_mtim.tv_sec * std::int64_t{1000000000} + status.st_mtim.tv_nsec};
}

// Still pictures (PNG, JPEG, ...) open through FFmpeg's image pipe demuxers, named
// "<codec>_pipe": one frame, no time, so they are refused as what they are.
bool isStillPicture(const AVFormatContext& input) {
    const std::string_view name = input.iformat != nullptr ? input.iformat->name : "";
    return name.size() > 5 && name.substr(name.size() - 5) == "_pipe";
}

} // namespace

std::int64_t toTicks(double seconds) {
    return checkedTruncate(std::round(seconds * static_cast<double>(ticksPerSecond)),
                           "edit time in ticks");
}

MediaError damagedMovie(const std::filesystem::path& path) {
    return MediaError("The movie “" + path.filename().string() + "” is damaged or incomplete.");
}

MediaError changedWhileExporting(const std::filesystem::path& path) {
    return MediaError("The movie “" + path.filename().string() +
                      "” changed while it was being exported.");
}

void checkUnchanged(const SourceMovie& movie) {
    if (stampOf(movie.path) != movie.stamp) {
        throw changedWhileExporting(movie.path);
    }
}

SourceMovie openSourceMovie(const std::filesystem::path& path) {
    SourceMovie movie;
    movie.path = path;
    movie.stamp = stampOf(path);
    try {
        movie.input = ff::openInput(path);
    } catch (const MediaError&) {
        if (looksLikeMpeg4(path)) {
            throw damagedMovie(path);
        }
        throw;
    }
    for (unsigned i = 0; i < movie.input->nb_streams; ++i) {
        const AVStream* stream = movie.input->streams[i];
        const auto type = stream->codecpar->codec_type;
        if (type == AVMEDIA_TYPE_VIDEO && movie.videoStream < 0 &&
            (stream->disposition & AV_DISPOSITION_ATTACHED_PIC) == 0) {
            movie.videoStream = static_cast<int>(i);
        } else if (type == AVMEDIA_TYPE_AUDIO) {
            movie.audioStreams.push_back(static_cast<int>(i));
        }
    }
    const std::string quotedName = "“" + path.filename().string() + "”";
    if (isStillPicture(*movie.input) || (movie.videoStream < 0 && movie.audioStreams.empty())) {
        throw MediaError(quotedName + " is not a movie.");
    }
    if (movie.videoStream < 0) {
        throw MediaError(quotedName + " has no picture.");
    }
    if (indexReachesPastEnd(movie)) {
        throw damagedMovie(path);
    }
    return movie;
}

TimeRange trackRange(const SourceMovie& movie, int streamIndex) {
    AVStream* stream = movie.stream(streamIndex);
    TimeRange range;
    if (stream->start_time != AV_NOPTS_VALUE) {
        range.start = ff::seconds(stream->start_time, stream->time_base);
    }
    if (stream->duration != AV_NOPTS_VALUE && stream->duration > 0) {
        range.end = range.start + ff::seconds(stream->duration, stream->time_base);
    } else if (movie.input->duration != AV_NOPTS_VALUE && movie.input->duration > 0) {
        range.end = ff::seconds(movie.input->duration, AV_TIME_BASE_Q);
    } else {
        range.end = range.start;
    }
    // A picture track whose file gives its last frame no duration of its own (the
    // track ends where that frame starts) lasts until the frame has been shown for
    // one frame time. A duration the file gives is kept: frames of a screen recording
    // last as long as the screen stayed unchanged, so the average rate says nothing
    // of the last one.
    const int entries = avformat_index_get_entries_count(stream);
    const AVRational rate = stream->avg_frame_rate;
    if (stream->codecpar->codec_type == AVMEDIA_TYPE_VIDEO && entries > 0 && rate.num > 0 &&
        rate.den > 0) {
        const AVIndexEntry* last = avformat_index_get_entry(stream, entries - 1);
        if (last != nullptr && last->timestamp != AV_NOPTS_VALUE) {
            const double lastStart = ff::seconds(last->timestamp, stream->time_base);
            if (range.end <= lastStart) {
                range.end = lastStart + 1 / av_q2d(rate);
            }
        }
    }
    return range;
}

std::optional<double> frameGridRate(const AVStream* stream) {
    // libavformat 5.1 asks for a writable stream, though it only reads the index.
    AVStream* indexed = const_cast<AVStream*>(stream);
    const int entries = avformat_index_get_entries_count(stream);
    std::int64_t grid = 0;
    std::int64_t firstStep = 0;
    bool even = true;
    for (int entry = 1; entry < entries; ++entry) {
        const std::int64_t step = avformat_index_get_entry(indexed, entry)->timestamp -
                                  avformat_index_get_entry(indexed, entry - 1)->timestamp;
        if (step <= 0) {
            continue;
        }
        firstStep = firstStep == 0 ? step : firstStep;
        even = even && step == firstStep;
        grid = std::gcd(grid, step);
    }
    if (even || grid <= 0) {
        return std::nullopt;
    }
    const double perSecond = 1 / (static_cast<double>(grid) * av_q2d(stream->time_base));
    return perSecond <= 240 ? std::optional<double>(perSecond) : std::nullopt;
}

bool isMixTrack(const AVStream* stream) {
    return hasTag(stream, "title", mixTrackName) || hasTag(stream, "handler_name", mixTrackName);
}

std::string trackName(const AVStream* stream) {
    // Muxers write their own placeholder as the handler's name when the track has none.
    static constexpr std::array<std::string_view, 4> placeholders{
        "SoundHandler", "VideoHandler", "Core Media Audio", "Core Media Video"};
    for (const char* key : {"title", "handler_name"}) {
        const AVDictionaryEntry* entry = av_dict_get(stream->metadata, key, nullptr, 0);
        if (entry != nullptr && *entry->value != '\0' &&
            std::find(placeholders.begin(), placeholders.end(), entry->value) ==
                placeholders.end()) {
            return entry->value;
        }
    }
    return {};
}

} // namespace lumenvale::edit
