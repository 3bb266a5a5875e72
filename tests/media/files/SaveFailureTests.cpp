// Saving when it cannot work: a folder that refuses writing, a disk that fills up,
// parts without content. The user gets a sentence; no part is lost and no partial
// movie stays behind.

#include "Harness.h"
#include "LumenvaleMedia/RecordingFiles.h"
#include "PartMaker.h"
#include "Probe.h"

#include <csignal>
#include <fstream>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

namespace lumenvale {
namespace {

const LocalDateTime date{2025, 3, 4, 17, 5, 9};

// A folder on a small file system of its own (root only: mounting is a privilege).
class SmallDisk {
  public:
    SmallDisk(const std::filesystem::path& folder, const std::string& options) : folder_(folder) {
        std::filesystem::create_directories(folder);
        mounted_ = ::mount("tmpfs", folder.c_str(), "tmpfs", 0, options.c_str()) == 0;
    }
    ~SmallDisk() {
        if (mounted_) {
            ::umount2(folder_.c_str(), MNT_DETACH);
        }
    }
    bool mounted() const { return mounted_; }

  private:
    std::filesystem::path folder_;
    bool mounted_ = false;
};

class SaveFailureTest : public ::testing::Test {
  protected:
    void SetUp() override {
        testing::makeRecording(temp_ / "recording.mp4", 320, 240, 3);
        parts_ = testing::splitIntoParts(temp_ / "recording.mp4", temp_.path(), {1.5});
    }

    void expectPartsKept() const {
        for (const auto& part : parts_) {
            EXPECT_TRUE(std::filesystem::exists(part)) << part;
        }
    }

    testing::TemporaryFolder temp_;
    std::vector<std::filesystem::path> parts_;
};

TEST_F(SaveFailureTest, AFolderThatRefusesWritingGivesASentenceAndKeepsTheParts) {
    const auto folder = temp_ / "locked";
    std::filesystem::create_directories(folder);
    std::optional<SmallDisk> readOnly;
    if (::geteuid() == 0) {
        readOnly.emplace(folder, "ro,size=1m"); // root writes through permissions
        if (!readOnly->mounted()) {
            GTEST_SKIP() << "cannot mount a read-only folder here";
        }
    } else {
        std::filesystem::permissions(folder, std::filesystem::perms::owner_read |
                                                 std::filesystem::perms::owner_exec);
    }
    const std::string reason = ::geteuid() == 0 ? "Read-only file system" : "Permission denied";

    for (const auto& [target, sentence] :
         {std::pair{folder, "Lumenvale can’t write to the folder “" + folder.string() +
                                "”: " + reason + "."},
          std::pair{folder / "Movies", "Lumenvale can’t create the folder “" +
                                           (folder / "Movies").string() + "”: " + reason + "."}}) {
        const auto error =
            testing::thrown<MediaError>([&] { RecordingFiles::save(parts_, target, date); });
        ASSERT_TRUE(error) << "saved into " << target;
        EXPECT_EQ(error->what(), sentence);
        EXPECT_FALSE(error->recError.has_value());
        expectPartsKept();
    }
    EXPECT_TRUE(testing::folderContents(folder).empty());
    std::error_code ignored; // (a read-only mount refuses this too)
    std::filesystem::permissions(folder, std::filesystem::perms::owner_all, ignored);
}

TEST_F(SaveFailureTest, AFullDiskGivesASentenceRemovesThePartialMovieAndKeepsTheParts) {
    const auto folder = temp_ / "small";
    SmallDisk disk(folder, "size=64k");
    if (!disk.mounted()) {
        GTEST_SKIP() << "cannot mount a small file system here";
    }
    EXPECT_EQ(
        testing::thrownMessage<MediaError>([&] { RecordingFiles::save(parts_, folder, date); }),
        "There isn’t enough space on the disk to save the movie in the folder “" + folder.string() +
            "”.");
    expectPartsKept();
    EXPECT_TRUE(testing::folderContents(folder).empty()) << "the partial movie is removed";
}

TEST_F(SaveFailureTest, AFolderOnAnotherFileSystemGetsEveryFrame) {
    // Samples are copied file to file by the kernel; across file systems that takes
    // another way, which must give the same movie.
    const auto folder = temp_ / "other";
    SmallDisk disk(folder, "size=64m");
    if (!disk.mounted()) {
        GTEST_SKIP() << "cannot mount a file system here";
    }
    const auto expected = testing::frameMd5s(parts_);
    const Recording saved = RecordingFiles::save(parts_, folder, date);
    EXPECT_EQ(testing::frameMd5s(saved.path), expected);
    EXPECT_NEAR(testing::audioRms(saved.path, 0, 1.0, 1.0),
                testing::audioRms(temp_ / "recording.mp4", 0, 1.0, 1.0), 0.01);
}

TEST_F(SaveFailureTest, AFileSizeLimitStopsTheSaveCleanly) {
    const auto folder = temp_ / "limited";
    rlimit previous{};
    ::getrlimit(RLIMIT_FSIZE, &previous);
    const auto previousSignal = std::signal(SIGXFSZ, SIG_IGN);
    rlimit limited = previous;
    limited.rlim_cur = 100 * 1024;
    ::setrlimit(RLIMIT_FSIZE, &limited);
    const std::string message =
        testing::thrownMessage<MediaError>([&] { RecordingFiles::save(parts_, folder, date); });
    ::setrlimit(RLIMIT_FSIZE, &previous);
    std::signal(SIGXFSZ, previousSignal);

    EXPECT_EQ(message,
              "The movie is too large for the disk of the folder “" + folder.string() + "”.");
    expectPartsKept();
    EXPECT_TRUE(testing::folderContents(folder).empty());
}

TEST_F(SaveFailureTest, PartsWithoutContentAreLeftOutAndNotMoviesAreNeverRemoved) {
    // A part whose writer stopped before its first fragment: header, no samples.
    const auto empty = temp_ / "Lumenvale-EMPTY.mp4";
    std::filesystem::copy_file(parts_[0], empty);
    std::uintmax_t headerBytes = 0;
    for (const testing::Box& box : testing::mp4Boxes(empty)) {
        if (box.type == "moof") {
            headerBytes = box.offset;
            break;
        }
    }
    ASSERT_GT(headerBytes, 0u);
    std::filesystem::resize_file(empty, headerBytes);
    const auto notAMovie = temp_ / "Lumenvale-TEXT.mp4";
    std::ofstream(notAMovie) << "not a movie";

    for (const auto& nothing : {std::vector<std::filesystem::path>{},
                                std::vector<std::filesystem::path>{empty, notAMovie}}) {
        const auto error = testing::thrown<MediaError>(
            [&] { RecordingFiles::save(nothing, temp_ / "out", date); });
        ASSERT_TRUE(error) << "saved nothing";
        EXPECT_EQ(error->recError, RecError::nothingRecorded);
        EXPECT_STREQ(error->what(), "Nothing was recorded.");
    }
    EXPECT_TRUE(std::filesystem::exists(empty));
    EXPECT_FALSE(std::filesystem::exists(temp_ / "out")) << "no folder made for nothing";

    const Recording saved =
        RecordingFiles::save({empty, parts_[0], notAMovie, parts_[1]}, temp_ / "out", date);
    EXPECT_EQ(saved.partDurations.size(), 2u);
    EXPECT_NEAR(saved.durationSeconds, 3.0, 1.0 / 30);
    EXPECT_FALSE(std::filesystem::exists(empty)) << "an empty part of a saved recording goes";
    EXPECT_TRUE(std::filesystem::exists(notAMovie)) << "a file that is not a movie stays";
}

} // namespace
} // namespace lumenvale
