#include "support/Eventually.h"
#include "support/Process.h"
#include "support/TempDir.h"
#include "support/VirtualDisplay.h"
#include "support/XObserver.h"

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

    static std::string post(const std::string& port, const std::string& token,
                            const std::string& body = R"({"hook_event_name":"SessionEnd"})") {
        return test::run({"curl", "-s", "-K", "-", "--data-binary", body,
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

TEST_F(AppProcessTest, ABannerComesUpAtTheTopRightOfTheMonitorUnderThePointer) {
    const test::VirtualDisplay twoMonitors({.monitors = 2});
    std::ofstream(home / "config/qelvane/Norrow.conf", std::ios::app) << "rule.enabled=false\n";
    test::Process app({NORROW_APP}, environment(twoMonitors.display()));
    const auto portLine = app.readLine(std::chrono::seconds(10));
    const auto tokenLine = app.readLine();
    ASSERT_TRUE(portLine && tokenLine) << app.errors();
    const auto announce = [&](const std::string& session) {
        return post(portLine->substr(12), tokenLine->substr(13),
                    R"({"hook_event_name":"Stop","session_id":")" + session +
                        R"(","cwd":"/work/web","last_assistant_message":"Done."})");
    };
    const auto pointAt = [&](int x, int y) {
        test::run({"xdotool", "mousemove", std::to_string(x), std::to_string(y)}, {},
                  {{"DISPLAY", twoMonitors.display()}});
    };
    // A banner comes to rest 32 points in from the monitor's right edge, 18 down from its top.
    test::XObserver x(twoMonitors.display());
    const auto bannerRestsAt = [&](int monitorRight) {
        return test::eventually([&] {
            for (const xcb_window_t window : x.children(x.root())) {
                const auto place = x.geometry(window);
                if (place && place->width == 344 && place->y == 18 &&
                    place->x + place->width == monitorRight - 32 && x.viewable(window))
                    return true;
            }
            return false;
        });
    };

    pointAt(1500, 300);
    ASSERT_EQ(announce("right"), "ok");
    EXPECT_TRUE(bannerRestsAt(2048)) << "on the right-hand monitor";
    pointAt(300, 300);
    ASSERT_EQ(announce("left"), "ok");
    EXPECT_TRUE(bannerRestsAt(1024)) << "on the left-hand monitor";
    EXPECT_EQ(app.stop(SIGTERM), 0) << app.errors();
}

} // namespace
} // namespace norrow
