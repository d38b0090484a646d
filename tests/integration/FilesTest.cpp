#include "core/Files.h"

#include "support/Files.h"
#include "support/TempDir.h"

#include <atomic>
#include <cerrno>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <thread>

namespace norrow {
namespace {

namespace fs = std::filesystem;
using Step = files::AtomicWriteFailure::Step;

using test::mode;

// The names in a folder, so a test can see that no temporary file survived.
std::vector<std::string> listing(const fs::path& folder) {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(folder))
        names.push_back(entry.path().filename().string());
    return names;
}

TEST(WriteAtomically, NewAndReplacedFilesGetTheirPermissionsAndBytes) {
    const struct {
        const char* name;
        files::AtomicWrite how;
        bool existing;
        unsigned expectedMode;
    } cases[] = {
        {"new file", {{}, 0640, false, false}, false, 0640},
        {"new file, named temporary", {"f.new", 0600, false, false}, false, 0600},
        {"replaced file keeps its mode", {{}, 0600, true, false}, true, 0604},
        {"replaced file takes the mode", {"f.new", 0600, false, false}, true, 0600},
    };
    for (const auto& c : cases) {
        test::TempDir dir;
        const auto file = dir / "f";
        if (c.existing) {
            ASSERT_FALSE(files::writeAtomically(file, "old", {}));
            ::chmod(file.c_str(), 0604);
        }
        EXPECT_FALSE(files::writeAtomically(file, "new bytes", c.how)) << c.name;
        EXPECT_EQ(files::read(file), "new bytes") << c.name;
        EXPECT_EQ(mode(file), c.expectedMode) << c.name;
        EXPECT_EQ(listing(dir.path()), std::vector<std::string>{"f"}) << c.name;
    }
}

TEST(WriteAtomically, ALinkIsFollowedOnlyWhenAsked) {
    for (const bool follow : {true, false}) {
        test::TempDir dir;
        ASSERT_FALSE(files::writeAtomically(dir / "target", "old", {}));
        fs::create_symlink(dir / "target", dir / "link");
        EXPECT_FALSE(files::writeAtomically(dir / "link", "new", {{}, 0600, false, follow}));
        EXPECT_EQ(fs::is_symlink(dir / "link"), follow);
        EXPECT_EQ(files::read(dir / "target"), follow ? "new" : "old");
        EXPECT_EQ(files::read(dir / "link"), "new");
    }
}

TEST(WriteAtomically, FailuresNameTheStepTheErrorAndThePaths) {
    test::TempDir dir;
    const auto file = dir / "f";
    // A folder where the file belongs cannot be renamed over; a missing folder holds no
    // temporary file at all.
    fs::create_directories(file / "inside");
    auto failure = files::writeAtomically(file, "x", {});
    ASSERT_TRUE(failure);
    EXPECT_EQ(failure->step, Step::rename);
    EXPECT_NE(failure->error, 0);
    EXPECT_EQ(failure->target, file);
    EXPECT_EQ(listing(dir.path()), std::vector<std::string>{"f"});

    failure = files::writeAtomically(dir / "missing" / "f", "x", {});
    ASSERT_TRUE(failure);
    EXPECT_EQ(failure->step, Step::create);
    EXPECT_EQ(failure->error, ENOENT);
}

// Each writer holds its temporary file locked, so that racing writers never take one another's
// for one left by a killed writer.
TEST(WriteAtomically, WritersRacingOnOneFileAllSucceedAndLeaveNoTemporaryFile) {
    test::TempDir dir;
    std::atomic<int> failures = 0;
    std::vector<std::thread> writers;
    for (int w = 0; w < 4; ++w)
        writers.emplace_back([&, w] {
            for (int i = 0; i < 50; ++i)
                if (files::writeAtomically(dir / "c", std::to_string(w),
                                           {.temporaryStem = "c.new"}))
                    ++failures;
        });
    for (auto& writer : writers)
        writer.join();
    EXPECT_EQ(failures, 0);
    EXPECT_EQ(listing(dir.path()), std::vector<std::string>{"c"});
}

} // namespace
} // namespace norrow
