#include "support/Process.h"
#include "support/TempDir.h"

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>

namespace norrow {
namespace {

namespace fs = std::filesystem;

// The installed program as a user starts it, on the test program's X session.
class AppProcessTest : public testing::Test {
protected:
    AppProcessTest() {
        fs::create_directories(home / "runtime");
        fs::permissions(home / "runtime", fs::perms::owner_all);
        fs::create_directories(home / "config/qelvane");
        fs::create_directories(home / "claude");
        std::ofstream(home / "config/qelvane/Norrow.conf")
            << "[General]\nhasSeenMenu=true\nclaudeFolderOverride=" << (home / "claude").string()
            << "\n";
    }

    test::Environment environment(const std::string& display) const {
        return {{"HOME", home.path().string()},
                {"XDG_CONFIG_HOME", (home / "config").string()},
                {"XDG_RUNTIME_DIR", (home / "runtime").string()},
                {"DISPLAY", display},
                {"NORROW_DEBUG", "1"}};
    }

    static std::string post(const std::string& port, const std::string& token) {
        return test::run({"curl", "-s", "-K", "-", "--data-binary",
                          R"({"hook_event_name":"SessionEnd"})",
                          "http://127.0.0.1:" + port + "/v1/event"},
                         "header = \"Authorization: Bearer " + token + "\"\n")
            .out;
    }

    test::TempDir home;
};

TEST_F(AppProcessTest, PrintsItsPortAndTokenRunsOnceAndQuitsCleanlyOnSigterm) {
    test::Process app({NORROW_APP}, environment(std::getenv("DISPLAY")));
    const auto portLine = app.readLine(std::chrono::seconds(10));
    const auto tokenLine = app.readLine();
    ASSERT_TRUE(portLine && portLine->starts_with("NORROW_PORT=")) << app.errors();
    ASSERT_TRUE(tokenLine && tokenLine->starts_with("NORROW_TOKEN="));
    const std::string port = portLine->substr(12);
    const std::string token = tokenLine->substr(13);
    EXPECT_EQ(token.size(), 64u);
    EXPECT_EQ(post(port, token), "ok");

    const auto second = test::run({NORROW_APP}, {}, environment(std::getenv("DISPLAY")));
    EXPECT_EQ(second.status, 0);
    EXPECT_EQ(second.out, "");
    EXPECT_EQ(second.err, "Norrow is already running; look for its bell in the tray.\n");
    EXPECT_EQ(post(port, token), "ok") << "the first one must be untouched";

    EXPECT_EQ(app.stop(SIGTERM), 0) << app.errors();
    EXPECT_EQ(post(port, token), "");
}

TEST_F(AppProcessTest, WithoutADisplayItSaysSoInOneLine) {
    auto environment = this->environment(":0");
    environment["DISPLAY"] = "";
    environment["WAYLAND_DISPLAY"] = "";
    const auto done = test::run({NORROW_APP}, {}, environment);
    EXPECT_EQ(done.status, 1);
    EXPECT_EQ(
        done.err,
        "Norrow needs a graphical session and found no display; to run only the listener, use "
        "`norrowctl serve`.\n");
}

} // namespace
} // namespace norrow
