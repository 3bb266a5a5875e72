// A cut-only export that cannot finish (a name that is taken, a source that changes)
// says why in a sentence and leaves nothing behind; one that finishes appears only
// then and reports its progress up to 1; one that reaches past the movie keeps what
// the movie has.

#include "Harness.h"
#include "LumenvaleMedia/EditRenderer.h"
#include "LumenvaleMedia/MediaError.h"
#include "PassthroughMovies.h"
#include "Probe.h"

#include <atomic>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <unistd.h>

namespace lumenvale {
namespace {

using namespace edittest;
using testing::TemporaryFolder;

class PassthroughFailureTest : public testing::SharedFolderTest<PassthroughFailureTest> {
  protected:
    static void SetUpTestSuite() {
        SharedFolderTest::SetUpTestSuite();
        makeRecordingLikeMovie(recording(), Codec::h264, 4, {{"sine=frequency=440", ""}});
    }
    static std::filesystem::path recording() { return *folder_ / "recording.mp4"; }
};

using testing::folderContents;

TEST_F(PassthroughFailureTest, FailsWithASentenceAndLeavesNothingBehind) {
    TemporaryFolder folder;
    std::ofstream(folder / "notes.txt") << "not a folder";
    std::ofstream(folder / "notes.mp4") << "not a movie";
    std::filesystem::create_directory(folder / "locked");
    std::filesystem::permissions(folder / "locked", std::filesystem::perms::owner_read |
                                                        std::filesystem::perms::owner_exec);
    std::ofstream(folder / "taken.mp4") << "someone else’s movie";
    std::filesystem::create_symlink(folder / "elsewhere.mp4", folder / "dangling.mp4");
    const auto before = folderContents(folder.path());
    const EditDecision cut = editKeeping(4, {{0.5, 1.5}, {2.5, 3.5}});
    std::atomic<bool> cancel{false};

    struct Row {
        std::string what;
        std::filesystem::path source;
        std::filesystem::path destination;
        std::string sentence; // part of the message
        std::function<void(double)> progress = [](double) {
        };
    };
    std::vector<Row> rows = {
        {"destination inside a file", recording(), folder / "notes.txt" / "edited.mp4",
         "Couldn’t write “edited.mp4”"},
        {"destination folder missing", recording(), folder / "gone" / "edited.mp4",
         "Couldn’t write “edited.mp4”"},
        {"source not a movie", folder / "notes.mp4", folder / "edited.mp4",
         "“notes.mp4” is not a movie"},
        {"destination taken", recording(), folder / "taken.mp4", "“taken.mp4” already exists"},
        {"destination a dangling link", recording(), folder / "dangling.mp4",
         "“dangling.mp4” already exists"},
        {"cancelled halfway", recording(), folder / "edited.mp4", "The export was cancelled.",
         [&](double fraction) {
             cancel = cancel || fraction > 0.3;
         }},
    };
    if (geteuid() != 0) { // permissions do not stop root
        rows.push_back({"read-only folder", recording(), folder / "locked" / "edited.mp4",
                        "Couldn’t write “edited.mp4”"});
    }
    for (const Row& row : rows) {
        cancel = false;
        const std::string message = testing::thrownMessage<MediaError>([&] {
            EditRenderer::exportMovie(row.source, cut, Codec::h264, row.destination, row.progress,
                                      &cancel);
        });
        EXPECT_NE(message.find(row.sentence), std::string::npos) << row.what << ": " << message;
        EXPECT_EQ(folderContents(folder.path()), before) << row.what;
    }
    EXPECT_TRUE(testing::readFile(folder / "taken.mp4") == "someone else’s movie") << "replaced";
}

// The movie appears under its name only when complete, with progress reported up to 1
// only then; a file that takes the name meanwhile is kept: the export then fails and
// says why.
TEST_F(PassthroughFailureTest, AppearsOnlyWhenCompleteAndNeverReplacesAFile) {
    TemporaryFolder folder;
    const auto destination = folder / "edited.mp4";
    const EditDecision cut = editKeeping(4, {{0.5, 1.5}, {2.5, 3.5}});
    bool visibleEarly = false;
    std::vector<double> reports;
    EditRenderer::exportMovie(recording(), cut, Codec::h264, destination, [&](double fraction) {
        visibleEarly = visibleEarly || (fraction < 1 && std::filesystem::exists(destination));
        reports.push_back(fraction);
    });
    EXPECT_FALSE(visibleEarly);
    EXPECT_EQ(testing::probe(destination).ofType("video").at(0).frames, 60);
    ASSERT_GE(reports.size(), 10U);
    EXPECT_GE(reports.front(), 0.0);
    EXPECT_LT(reports.front(), 0.1);
    EXPECT_TRUE(std::is_sorted(reports.begin(), reports.end()));
    EXPECT_DOUBLE_EQ(reports.back(), 1.0);
    EXPECT_LT(reports[reports.size() - 2], 1.0) << "1 only once the file is complete";

    const auto raced = folder / "raced.mp4";
    const std::string message = testing::thrownMessage<MediaError>([&] {
        EditRenderer::exportMovie(recording(), cut, Codec::h264, raced, [&](double fraction) {
            if (fraction > 0.3 && !std::filesystem::exists(raced)) {
                std::ofstream(raced) << "someone else’s movie";
            }
        });
    });
    EXPECT_NE(message.find("“raced.mp4” already exists"), std::string::npos) << message;
    EXPECT_TRUE(testing::readFile(raced) == "someone else’s movie") << "replaced";
    EXPECT_EQ(folderContents(folder.path()),
              (std::vector<std::filesystem::path>{"edited.mp4", "raced.mp4"}));
}

// A source cut short while it is copied stops the export with a sentence; nothing is
// left behind (its pages once vanished under the copy and the process died of SIGBUS).
TEST_F(PassthroughFailureTest, ASourceThatChangesMidwayStopsTheExport) {
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

TEST_F(PassthroughFailureTest, ClipPastTheEndKeepsWhatTheMovieHas) {
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
