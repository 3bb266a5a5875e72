// What every export promises, whichever way it is made (frames copied, encoded again,
// or a GIF): progress up to 1, the file appearing only once complete, and on failure
// (a name that is taken, a folder that cannot be written, a source that is no movie or
// changes, a cancel) a sentence and nothing left behind. And a cut-only export that
// reaches past the movie keeps what the movie has.

#include "Harness.h"
#include "LumenvaleMedia/EditRenderer.h"
#include "LumenvaleMedia/MediaError.h"
#include "PassthroughMovies.h"
#include "Probe.h"

#include <atomic>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <unistd.h>

namespace lumenvale {
namespace {

using namespace edittest;
using testing::folderContents;
using testing::TemporaryFolder;

class ExportOutcomeTest : public testing::SharedFolderTest<ExportOutcomeTest> {
  protected:
    static void SetUpTestSuite() {
        SharedFolderTest::SetUpTestSuite();
        makeRecordingLikeMovie(recording(), Codec::h264, 4, {{"sine=frequency=440", ""}});
    }
    static std::filesystem::path recording() { return *folder_ / "recording.mp4"; }
};

// The three ways an edit becomes a file, each of 2 s of the 4 s recording.
struct Exporter {
    const char* name;
    const char* extension;
    std::function<void(const std::filesystem::path& source, const std::filesystem::path& output,
                       const EditRenderer::Progress& progress, const std::atomic<bool>* cancel)>
        run;
};

const EditDecision cut = editKeeping(4, {{0.5, 1.5}, {2.5, 3.5}});
const Exporter exporters[] = {
    {"cut only", ".mp4",
     [](const auto& source, const auto& output, const auto& progress, const auto* cancel) {
         EditRenderer::exportMovie(source, cut, Codec::h264, output, progress, cancel);
     }},
    {"encoded again", ".mp4",
     [](const auto& source, const auto& output, const auto& progress, const auto* cancel) {
         EditDecision faster = cut;
         faster.speed = 2;
         EditRenderer::exportMovie(source, faster, Codec::h264, output, progress, cancel);
     }},
    {"GIF", ".gif",
     [](const auto& source, const auto& output, const auto& progress, const auto* cancel) {
         EditRenderer::exportGIF(source, cut, output, progress, cancel);
     }},
};

TEST_F(ExportOutcomeTest, FailsWithASentenceAndLeavesNothingBehind) {
    TemporaryFolder folder;
    std::ofstream(folder / "notes.txt") << "not a folder";
    std::ofstream(folder / "notes.mp4") << "not a movie";
    std::filesystem::create_directory(folder / "locked");
    std::filesystem::permissions(folder / "locked", std::filesystem::perms::owner_read |
                                                        std::filesystem::perms::owner_exec);
    std::ofstream(folder / "taken.mp4") << "someone else’s movie";
    std::filesystem::create_symlink(folder / "elsewhere.mp4", folder / "dangling.mp4");
    const auto before = folderContents(folder.path());
    std::atomic<bool> cancel{false};
    int reportsAfterCancel = 0;

    struct Row {
        std::string what;
        std::filesystem::path source;
        std::filesystem::path destination;
        std::string sentence; // part of the message
        EditRenderer::Progress progress = [](double) {
        };
    };
    std::vector<Row> rows = {
        {"destination inside a file", recording(), folder / "notes.txt" / "edited.mp4",
         "Couldn’t write “edited.mp4”"},
        {"destination folder missing", recording(), folder / "gone" / "edited.mp4",
         "Couldn’t write “edited.mp4”"},
        {"source not a movie", folder / "notes.mp4", folder / "edited.mp4",
         "“notes.mp4” is not a movie"},
        {"source missing", folder / "absent.mp4", folder / "edited.mp4", "“absent.mp4”"},
        {"destination taken", recording(), folder / "taken.mp4", "“taken.mp4” already exists"},
        {"destination a dangling link", recording(), folder / "dangling.mp4",
         "“dangling.mp4” already exists"},
        {"cancelled halfway", recording(), folder / "edited.mp4", "The export was cancelled.",
         [&](double fraction) {
             reportsAfterCancel += cancel ? 1 : 0;
             cancel = cancel || fraction > 0.3;
         }},
    };
    if (geteuid() != 0) { // permissions do not stop root
        rows.push_back({"read-only folder", recording(), folder / "locked" / "edited.mp4",
                        "Couldn’t write “edited.mp4”"});
    }
    for (const Exporter& exporter : exporters) {
        for (const Row& row : rows) {
            SCOPED_TRACE(std::string(exporter.name) + ", " + row.what);
            cancel = false;
            const std::string message = testing::thrownMessage<MediaError>(
                [&] { exporter.run(row.source, row.destination, row.progress, &cancel); });
            EXPECT_NE(message.find(row.sentence), std::string::npos) << message;
            EXPECT_EQ(folderContents(folder.path()), before);
        }
        EXPECT_EQ(reportsAfterCancel, 0) << exporter.name << ": stopped at once";
    }
    EXPECT_TRUE(testing::readFile(folder / "taken.mp4") == "someone else’s movie") << "replaced";
}

// The file appears under its name only when complete, with progress reported up to 1
// only then; a file that takes the name meanwhile is kept: the export then fails and
// says why.
TEST_F(ExportOutcomeTest, AppearsOnlyWhenCompleteAndNeverReplacesAFile) {
    for (const Exporter& exporter : exporters) {
        SCOPED_TRACE(exporter.name);
        TemporaryFolder folder;
        const auto destination = folder / (std::string("edited") + exporter.extension);
        bool visibleEarly = false;
        std::vector<double> reports;
        exporter.run(
            recording(), destination,
            [&](double fraction) {
                visibleEarly =
                    visibleEarly || (fraction < 1 && std::filesystem::exists(destination));
                reports.push_back(fraction);
            },
            nullptr);
        EXPECT_FALSE(visibleEarly);
        EXPECT_GT(testing::probe(destination).ofType("video").at(0).frames, 0);
        ASSERT_GE(reports.size(), 10U);
        EXPECT_GE(reports.front(), 0.0);
        EXPECT_LT(reports.front(), 0.1);
        EXPECT_TRUE(std::is_sorted(reports.begin(), reports.end()));
        EXPECT_DOUBLE_EQ(reports.back(), 1.0);
        EXPECT_LT(reports[reports.size() - 2], 1.0) << "1 only once the file is complete";

        const auto raced = folder / (std::string("raced") + exporter.extension);
        const std::string message = testing::thrownMessage<MediaError>([&] {
            exporter.run(
                recording(), raced,
                [&](double fraction) {
                    if (fraction > 0.3 && !std::filesystem::exists(raced)) {
                        std::ofstream(raced) << "someone else’s movie";
                    }
                },
                nullptr);
        });
        EXPECT_NE(message.find("“" + raced.filename().string() + "” already exists"),
                  std::string::npos)
            << message;
        EXPECT_TRUE(testing::readFile(raced) == "someone else’s movie") << "replaced";
        EXPECT_EQ(folderContents(folder.path()),
                  (std::vector<std::filesystem::path>{destination.filename(), raced.filename()}));
    }
}

// A source cut short while it is copied stops the export with a sentence; nothing is
// left behind (its pages once vanished under the copy and the process died of SIGBUS).
TEST_F(ExportOutcomeTest, ASourceThatChangesMidwayStopsTheExport) {
    TemporaryFolder folder;
    const auto source = folder / "source.mp4";
    std::filesystem::copy_file(recording(), source);
    const auto half = static_cast<off_t>(std::filesystem::file_size(source) / 2);
    bool truncated = false;
    const std::string message = testing::thrownMessage<MediaError>([&] {
        EditRenderer::exportMovie(source, editKeeping(4, {{0, 4}}), Codec::h264,
                                  folder / "edited.mp4", [&](double fraction) {
                                      if (fraction > 0.3 && !truncated) {
                                          truncated = ::truncate(source.c_str(), half) == 0;
                                      }
                                  });
    });
    EXPECT_NE(message.find("changed while it was being exported"), std::string::npos) << message;
    EXPECT_TRUE(truncated);
    EXPECT_EQ(folderContents(folder.path()), (std::vector<std::filesystem::path>{"source.mp4"}));
}

TEST_F(ExportOutcomeTest, ClipPastTheEndKeepsWhatTheMovieHas) {
    TemporaryFolder folder;
    const auto output = folder / "edited.mp4";
    EditRenderer::exportMovie(recording(), editKeeping(4, {{0, 0.5}, {3, 6}}), Codec::h264, output,
                              [](double) {});
    const auto info = testing::probe(output);
    ASSERT_EQ(info.ofType("video").size(), 1U);
    EXPECT_EQ(info.ofType("video")[0].frames, 15 + 30);
    EXPECT_NEAR(info.ofType("video")[0].durationSeconds, 1.5, 1e-3);
    ASSERT_EQ(info.ofType("audio").size(), 1U);
    EXPECT_NEAR(info.ofType("audio")[0].durationSeconds, 1.5, 512.0 / 48000 + 1e-3);
}

} // namespace
} // namespace lumenvale
