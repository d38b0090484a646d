#include "core/BridgeState.h"

#include "support/TempDir.h"

#include <fcntl.h>
#include <fstream>
#include <gtest/gtest.h>
#include <sys/stat.h>

namespace norrow {
namespace {

// Creates `file` (or, for a link, keeps it) and sets its own modification time.
void put(const std::filesystem::path& file, long seconds, long nanos = 0) {
    if (!std::filesystem::is_symlink(file)) std::ofstream(file) << "{}";
    const timespec times[2] = {{seconds, nanos}, {seconds, nanos}};
    ASSERT_EQ(::utimensat(AT_FDCWD, file.c_str(), times, AT_SYMLINK_NOFOLLOW), 0) << file;
}

TEST(BridgeState, FinishedJsonFilesAreSessionsLatestFirstTiesInListingOrder) {
    test::TempDir state;
    for (const char* ignored : {"abc.tmp.json", "notes.txt", "upper.JSON", "abc.json.bak"})
        put(state / ignored, 1);
    put(state / "old.json", 1'700'000'000);
    put(state / "new.json", 1'700'000'100, 250'000'000);
    put(state / "newer.json", 1'700'000'100, 500'000'000);
    for (const char* tie : {"t1.json", "t2.json", "t3.json", "t4.json"})
        put(state / tie, 1'700'000'050);
    std::filesystem::create_symlink("missing-target", state / "link.json");
    put(state / "link.json", 1'600'000'000);

    std::vector<std::string> expected{"newer", "new"};
    for (const auto& entry : std::filesystem::directory_iterator(state.path()))
        if (entry.path().filename().string()[0] == 't')
            expected.push_back(entry.path().stem().string());
    expected.insert(expected.end(), {"old", "link"});
    EXPECT_EQ(BridgeState::liveSessions(state.path()), expected);
    EXPECT_EQ(BridgeState::count(state.path()), expected.size());

    const auto details = BridgeState::liveSessionDetails(state.path());
    EXPECT_NEAR(details[0].lastActivity.time_since_epoch().count(), 1'700'000'100.5, 1e-6);
    EXPECT_EQ(details.back(), (BridgeState::LiveSession{
                                  "link", BridgeState::Date(std::chrono::seconds(1'600'000'000))}));
    EXPECT_EQ(BridgeState::count(state / "missing"), 0u);
    EXPECT_EQ(BridgeState::count(state / "notes.txt"), 0u);
}

TEST(BridgeState, Describe) {
    const std::pair<std::size_t, const char*> cases[] = {{0, "No Claude Code sessions"},
                                                         {1, "1 Claude Code session"},
                                                         {2, "2 Claude Code sessions"}};
    for (const auto& [count, text] : cases)
        EXPECT_EQ(BridgeState::describe(count), text);
}

} // namespace
} // namespace norrow
