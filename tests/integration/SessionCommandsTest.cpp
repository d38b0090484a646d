#include "core/AppVersion.h"
#include "core/BridgeState.h"
#include "support/Process.h"
#include "support/TempDir.h"

#include <climits>
#include <fcntl.h>
#include <fstream>
#include <gtest/gtest.h>
#include <sys/stat.h>

namespace norrow {
namespace {

test::Finished norrowctl(std::vector<std::string> arguments, const test::Environment& env = {}) {
    arguments.insert(arguments.begin(), NORROWCTL);
    return test::run(arguments, {}, env);
}

void touch(const std::filesystem::path& file, long seconds, long nanos = 0) {
    std::filesystem::create_directories(file.parent_path());
    std::ofstream(file) << "{}";
    const timespec times[2] = {{seconds, nanos}, {seconds, nanos}};
    EXPECT_EQ(::utimensat(AT_FDCWD, file.c_str(), times, 0), 0) << file;
}

TEST(SessionsCommand, ListsLiveSessionsNewestFirstWithNamesAndUtcTimes) {
    test::TempDir top;
    // Deep enough that one state file's full path is too long to read its attributes by.
    auto claude = top.path();
    while (claude.string().size() < 3850)
        claude /= std::string(100, 'a');
    const auto state = BridgeState::stateFolder(claude);
    const std::string unreadable = std::string(250, 'z') + ".json";
    ASSERT_GE((state / unreadable).string().size(), std::size_t{PATH_MAX});
    touch(state / "0f9e8d7c-6b5a-4000-8000-000000000001.json", 1'795'265'185, 750'000'000);
    touch(state / "named.json", 1'795'266'000);
    touch(state / "early.json", -2, 500'000'000);
    std::filesystem::create_directories(claude / "projects/-raze");
    std::filesystem::copy_file(std::filesystem::path(NORROW_CORPUS_DIR) /
                                   "transcripts/uzaxirr-raze-cwd-on-line-1.jsonl",
                               claude / "projects/-raze/named.jsonl");
    // Made and removed from inside its folder, where its name is short enough.
    const auto inState = [&](const std::string& command) {
        return test::run({"sh", "-c", "cd \"$0\" && " + command, state.string(), unreadable});
    };
    ASSERT_EQ(inState(": > \"$1\"").status, 0);

    const auto out = norrowctl({"sessions", "--claude-folder", claude.string()});
    EXPECT_EQ(inState("rm \"$1\"").status, 0);
    EXPECT_EQ(out.status, 0);
    EXPECT_EQ(out.out, R"([{"id":"named","name":"raze","lastActivity":"2026-11-21T13:00:00Z"},)"
                       R"({"id":"0f9e8d7c-6b5a-4000-8000-000000000001","name":"0f9e8d7c",)"
                       R"("lastActivity":"2026-11-21T12:46:25Z"},)"
                       R"({"id":"early","name":"early","lastActivity":"1969-12-31T23:59:58Z"},)"
                       R"({"id":")" +
                           std::string(250, 'z') +
                           R"(","name":"zzzzzzzz","lastActivity":"0001-01-01T00:00:00Z"}])"
                           "\n");
    EXPECT_EQ(norrowctl({"sessions", "--claude-folder", (top / "missing").string()}).out, "[]\n");
}

TEST(SessionsCommand, DefaultsToTheAppsClaudeFolder) {
    test::TempDir home;
    const test::Environment env = {{"HOME", home.path().string()},
                                   {"XDG_CONFIG_HOME", (home / ".config").string()}};
    touch(home / ".claude/norrow/state/at-home.json", 1'795'265'185);
    EXPECT_EQ(norrowctl({"sessions"}, env).out,
              R"([{"id":"at-home","name":"at-home","lastActivity":"2026-11-21T12:46:25Z"}])"
              "\n");

    touch(home / "elsewhere/norrow/state/overridden.json", 1'795'265'185);
    std::filesystem::create_directories(home / ".config/qelvane");
    std::ofstream(home / ".config/qelvane/Norrow.conf")
        << "[General]\nclaudeFolderOverride=" << (home / "elsewhere").string() << "\n";
    EXPECT_EQ(norrowctl({"sessions"}, env).out,
              R"([{"id":"overridden","name":"overridd","lastActivity":"2026-11-21T12:46:25Z"}])"
              "\n");
}

TEST(VersionCommand, ComparesAndJudgesBridges) {
    const std::tuple<std::vector<std::string>, std::string, int> cases[] = {
        {{"version"}, AppVersion::current() + "\n", 0},
        {{"version", "newer", "1.10", "1.9"}, "true\n", 0},
        {{"version", "bridge-stale", "1.1.9", "--current", "1.2.0"}, "true\n", 0},
        {{"version", "bridge-stale", "--current", "1.2.0"}, "false\n", 0},
        {{"version", "bridge-stale", "1.1.9"}, AppVersion::isRelease() ? "true\n" : "false\n", 0},
        {{"version", "newer", "1.0"}, "", 2},
    };
    for (const auto& [arguments, output, status] : cases) {
        const auto result = norrowctl(arguments);
        EXPECT_EQ(result.out, output) << arguments.back();
        EXPECT_EQ(result.status, status) << arguments.back();
    }
}

} // namespace
} // namespace norrow
