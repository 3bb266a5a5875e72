#include "cli/ExportCommand.h"

#include "LumenvaleKit/Codec.h"
#include "LumenvaleKit/EditDecision.h"
#include "cli/CommandOutput.h"
#include "cli/Usage.h"
#include "editor/EditorExport.h"
#include "editor/MovieFacts.h"
#include "editor/StoredCodec.h"

#include <atomic>
#include <cerrno>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <unistd.h>

namespace lumenvale {
namespace {

constexpr int exitFailure = 1;
constexpr int exitUsage = 2;

// Set from the signal handler; the export polls it and stops.
std::atomic<bool> interrupted{false};
static_assert(std::atomic<bool>::is_always_lock_free, "used from a signal handler");

extern "C" void interruptExport(int) {
    interrupted.store(true);
}

// Installs the interrupt handler for the life of the export and restores the old one.
class InterruptScope {
  public:
    InterruptScope()
        : previousInterrupt_(std::signal(SIGINT, interruptExport)),
          previousTerminate_(std::signal(SIGTERM, interruptExport)) {
        interrupted.store(false);
    }
    ~InterruptScope() {
        std::signal(SIGINT, previousInterrupt_);
        std::signal(SIGTERM, previousTerminate_);
    }
    InterruptScope(const InterruptScope&) = delete;
    InterruptScope& operator=(const InterruptScope&) = delete;

  private:
    void (*previousInterrupt_)(int);
    void (*previousTerminate_)(int);
};

// A failure with the sentence that goes to standard error.
struct CommandFailure {
    std::string message;
    int exitCode = exitFailure;
};

// "Exporting… 42%": rewritten in place on a terminal, one line per tenth otherwise.
class ProgressLine {
  public:
    ProgressLine() : onTerminal_(isatty(STDERR_FILENO) == 1) {}

    void report(double fraction) {
        const double clamped = fraction > 0 ? std::min(fraction, 1.0) : 0;
        const int percent = static_cast<int>(std::floor(clamped * 100));
        const std::lock_guard lock(mutex_);
        if (percent <= shown_ || (!onTerminal_ && percent / 10 == shown_ / 10)) {
            return;
        }
        shown_ = percent;
        std::fprintf(stderr, onTerminal_ ? "\rExporting… %d%%" : "Exporting… %d%%\n", percent);
        std::fflush(stderr);
    }

    // A sentence about the export, on a line of its own.
    void note(const std::string& sentence) {
        const std::lock_guard lock(mutex_);
        std::fprintf(stderr, "%s%s\n", onTerminal_ && shown_ >= 0 ? "\n" : "", sentence.c_str());
        std::fflush(stderr);
    }

    void finish() {
        const std::lock_guard lock(mutex_);
        if (onTerminal_ && shown_ >= 0) {
            std::fprintf(stderr, "\n");
        }
    }

  private:
    const bool onTerminal_;
    std::mutex mutex_;
    int shown_ = -1;
};

struct ExportRequest {
    std::filesystem::path movie;
    std::optional<std::filesystem::path> editFile;
    EditorExport::Format format = EditorExport::Format::movie;
    std::optional<Codec> codec;
    std::optional<std::filesystem::path> output;
};

// Reads the words after "export" as the process got them: paths keep their bytes
// (a file name need not be UTF-8). Options take their value as the next word or after
// "="; "--" ends the options.
ExportRequest parse(const std::vector<std::string>& arguments) {
    const std::string usage = Usage::exportMovie().toStdString();
    const auto usageError = [&](const std::string& problem) {
        return CommandFailure{problem + "\n" + usage, exitUsage};
    };
    ExportRequest request;
    std::vector<std::string> movies;
    bool optionsEnded = false;
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        const std::string& word = arguments[i];
        if (optionsEnded || word.size() < 2 || word.front() != '-') {
            movies.push_back(word);
            continue;
        }
        if (word == "--") {
            optionsEnded = true;
            continue;
        }
        const std::size_t equals = word.find('=');
        const std::string name = word.substr(0, equals);
        const auto value = [&]() -> std::string {
            if (equals != std::string::npos) {
                return word.substr(equals + 1);
            }
            if (i + 1 >= arguments.size()) {
                throw usageError(name + " needs a value.");
            }
            return arguments[++i];
        };
        if (name == "--edit") {
            request.editFile = std::filesystem::path(value());
        } else if (name == "--output") {
            request.output = std::filesystem::path(value());
        } else if (name == "--codec") {
            request.codec = codecFromRawValue(value());
            if (!request.codec) {
                throw usageError("The codec must be h264 or hevc.");
            }
        } else if (word == "--gif") {
            request.format = EditorExport::Format::gif;
        } else {
            throw usageError("Unknown option “" + word + "”.");
        }
    }
    if (movies.size() != 1) {
        throw usageError("Name one movie to export.");
    }
    request.movie = std::filesystem::path(movies.front());
    return request;
}

EditDecision readEdit(const std::filesystem::path& editFile) {
    const std::string name = editFile.filename().string();
    std::ifstream file(editFile, std::ios::binary); // by its bytes: need not be UTF-8
    if (!file) {
        throw CommandFailure{"Couldn’t read the edit " + name + ". " + std::strerror(errno) + "."};
    }
    const std::string json{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    Result<EditDecision> decoded = decodeEditDecision(json);
    if (!decoded) {
        throw CommandFailure{"Couldn’t use the edit " + name + ". " + decoded.error()};
    }
    // Checked before anything converts its values (to ticks, to pixels).
    if (const std::optional<std::string> problem = decoded->problem()) {
        throw CommandFailure{"Couldn’t use the edit " + name +
                             ". The edit is not valid: " + *problem};
    }
    return std::move(decoded).value();
}

EditRenderer::Destination chooseTarget(const ExportRequest& request,
                                       std::shared_ptr<EditorExport::Reservation>& reservation) {
    if (!request.output) {
        reservation = EditorExport::reserveTarget(request.movie, request.format);
        return reservation->destination();
    }
    // Told early; the export itself never replaces a file that appears meanwhile either.
    // A dangling link takes the name too: writing through it would land elsewhere.
    std::error_code ignored;
    if (std::filesystem::symlink_status(*request.output, ignored).type() !=
        std::filesystem::file_type::not_found) {
        throw CommandFailure{request.output->string() +
                             " already exists. Choose another --output; Lumenvale never "
                             "replaces a file."};
    }
    return *request.output;
}

} // namespace

int runExport(const std::vector<std::string>& arguments) {
    std::string movieName;
    try {
        const ExportRequest request = parse(arguments);
        movieName = request.movie.filename().string();
        // The edit is read before the movie so a bad edit is reported as such.
        const EditDecision edit = request.editFile
                                      ? readEdit(*request.editFile)
                                      : EditDecision(readMovieFacts(request.movie).durationSeconds);
        const Codec codec = request.codec ? *request.codec : storedCodec();

        std::shared_ptr<EditorExport::Reservation> reservation;
        const EditRenderer::Destination target = chooseTarget(request, reservation);

        const InterruptScope interruptScope;
        ProgressLine progress;
        std::filesystem::path written;
        try {
            written = EditorExport::write(
                request.movie, edit, request.format, codec, target,
                [&](double fraction) { progress.report(fraction); }, &interrupted,
                [&](const std::string& sentence) { progress.note(sentence); });
        } catch (...) {
            progress.finish();
            throw;
        }
        progress.finish();
        std::error_code ignored;
        std::printf("%s\n", std::filesystem::absolute(written, ignored).c_str());
        std::fflush(stdout);
        return 0;
    } catch (const CommandFailure& failure) {
        printError(QString::fromStdString(failure.message));
        return failure.exitCode;
    } catch (const std::exception& failure) {
        // The renderer's sentence, e.g. "Nothing was recorded."
        printError(QString::fromStdString("Couldn’t export " + movieName + ". " + failure.what()));
        return exitFailure;
    }
}

} // namespace lumenvale
