#include "core/AppVersion.h"
#include "support/TempDir.h"

#include <array>
#include <climits>
#include <cstdio>
#include <fcntl.h>
#include <fstream>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace norrow {
namespace {

struct Output {
    std::string text;
    int status;
};

std::string quoted(const std::string& text) {
    std::string out = "'";
    for (char c : text)
        out += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return out + "'";
}

// Runs the real norrowctl with `arguments`, after the shell assignments in `environment`.
Output norrowctl(const std::vector<std::string>& arguments, const std::string& environment = {}) {
    std::string command = environment + " " + quoted(NORROWCTL);
    for (const auto& argument : arguments)
        command += " " + quoted(argument);
    FILE* pipe = ::popen((command + " 2>/dev/null").c_str(), "r");
    Output result{{}, -1};
    if (pipe == nullptr) return result;
    std::array<char, 4096> buffer{};
    for (std::size_t n; (n = std::fread(buffer.data(), 1, buffer.size(), pipe)) > 0;)
        result.text.append(buffer.data(), n);
    const int raw = ::pclose(pipe);
    if (WIFEXITED(raw)) result.status = WEXITSTATUS(raw);
    return result;
}

// Creates `name` in `folder` (or keeps a link there) with its own modification time.
void put(const std::filesystem::path& folder, const std::string& name, long seconds, long nanos = 0,
         const std::string& text = "{}") {
    std::filesystem::create_directories(folder);
    const int at = ::open(folder.c_str(), O_DIRECTORY | O_CLOEXEC);
    const int fd =
        ::openat(at, name.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, 0600);
    if (fd >= 0) {
        EXPECT_EQ(::write(fd, text.data(), text.size()), static_cast<ssize_t>(text.size()));
        ::close(fd);
    }
    const timespec times[2] = {{seconds, nanos}, {seconds, nanos}};
    EXPECT_EQ(::utimensat(at, name.c_str(), times, AT_SYMLINK_NOFOLLOW), 0) << name;
    ::close(at);
}

TEST(SessionsCommand, ListsLiveSessionsNewestFirstWithNamesAndUtcTimes) {
    test::TempDir top;
    // Deep enough that a state file's full path is too long to read its attributes by.
    auto claude = top.path();
    for (int i = 0; i < 16; ++i)
        claude /= std::string(250, 'a');
    const auto state = claude / "norrow/state";
    const std::string unreadable(250, 'z');
    ASSERT_LT(state.string().size(), std::size_t{PATH_MAX});
    ASSERT_GE((state / (unreadable + ".json")).string().size(), std::size_t{PATH_MAX});
    put(state, "0f9e8d7c-6b5a-4000-8000-000000000001.json", 1'795'265'185, 750'000'000);
    put(state, "named.json", 1'795'266'000);
    put(state, "named.tmp.json", 1'795'267'000);
    put(state, unreadable + ".json", 1'795'268'000);
    std::ifstream raze(std::filesystem::path(NORROW_CORPUS_DIR) /
                       "transcripts/uzaxirr-raze-cwd-on-line-1.jsonl");
    put(claude / "projects/-Users-u-work-raze", "named.jsonl", 0, 0,
        {std::istreambuf_iterator<char>(raze), std::istreambuf_iterator<char>()});
    std::filesystem::create_symlink("gone", state / "linked.json");
    put(state, "linked.json", -2, 500'000'000); // the link's own date

    const auto out = norrowctl({"sessions", "--claude-folder", claude.string()});
    EXPECT_EQ(out.status, 0);
    EXPECT_EQ(out.text, R"([{"id":"named","name":"raze","lastActivity":"2026-11-21T13:00:00Z"},)"
                        R"({"id":"0f9e8d7c-6b5a-4000-8000-000000000001","name":"0f9e8d7c",)"
                        R"("lastActivity":"2026-11-21T12:46:25Z"},)"
                        R"({"id":"linked","name":"linked","lastActivity":"1969-12-31T23:59:58Z"},)"
                        R"({"id":")" +
                            unreadable +
                            R"(","name":"zzzzzzzz","lastActivity":"0001-01-01T00:00:00Z"}])"
                            "\n");
    EXPECT_EQ(norrowctl({"sessions", "--claude-folder", (top / "missing").string()}).text, "[]\n");

    const int at = ::open(state.c_str(), O_DIRECTORY | O_CLOEXEC);
    ::unlinkat(at, (unreadable + ".json").c_str(), 0);
    ::close(at);
}

TEST(SessionsCommand, DefaultsToTheAppsClaudeFolder) {
    test::TempDir home;
    const std::string environment = "HOME=" + quoted(home.path().string()) +
                                    " XDG_CONFIG_HOME=" + quoted((home / ".config").string());
    put(home / ".claude/norrow/state", "at-home.json", 1'795'265'185);
    EXPECT_EQ(norrowctl({"sessions"}, environment).text,
              R"([{"id":"at-home","name":"at-home","lastActivity":"2026-11-21T12:46:25Z"}])"
              "\n");

    put(home / "elsewhere/norrow/state", "overridden.json", 1'795'265'185);
    std::filesystem::create_directories(home / ".config/qelvane");
    std::ofstream(home / ".config/qelvane/Norrow.conf")
        << "[General]\nclaudeFolderOverride=" << (home / "elsewhere").string() << "\n";
    EXPECT_EQ(norrowctl({"sessions"}, environment).text,
              R"([{"id":"overridden","name":"overridd","lastActivity":"2026-11-21T12:46:25Z"}])"
              "\n");
}

TEST(VersionCommand, ComparesAndJudgesBridges) {
    const std::tuple<std::vector<std::string>, std::string, int> cases[] = {
        {{"version"}, AppVersion::current() + "\n", 0},
        {{"version", "newer", "1.10", "1.9"}, "true\n", 0},
        {{"version", "newer", "1.3-beta", "1.2"}, "false\n", 0},
        {{"version", "bridge-stale", "1.1.9", "--current", "1.2.0"}, "true\n", 0},
        {{"version", "bridge-stale", "1.2.0", "--current", "1.2.0"}, "false\n", 0},
        {{"version", "bridge-stale", "1.1.9", "--current", "dev"}, "false\n", 0},
        {{"version", "bridge-stale", "--current", "1.2.0"}, "false\n", 0},
        {{"version", "bridge-stale", "1.1.9"}, AppVersion::isRelease() ? "true\n" : "false\n", 0},
        {{"version", "newer", "1.0"}, "", 2},
        {{"version", "bridge-stale", "1", "2"}, "", 2},
    };
    for (const auto& [arguments, output, status] : cases) {
        const auto out = norrowctl(arguments);
        EXPECT_EQ(out.text, output) << arguments.back();
        EXPECT_EQ(out.status, status) << arguments.back();
    }
}

} // namespace
} // namespace norrow
