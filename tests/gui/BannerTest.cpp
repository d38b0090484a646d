#include "GuiSupport.h"
#include "app/AppController.h"
#include "app/BannerContentView.h"
#include "app/BannerPanel.h"
#include "app/NetworkTransport.h"
#include "support/Process.h"
#include "support/TempDir.h"
#include "support/XObserver.h"

#include <QFontMetricsF>
#include <QGuiApplication>
#include <QWindow>
#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>

namespace norrow {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using Rect = test::XObserver::Rect;

// Banner timers that fire only when the test says so.
class HandClock {
public:
    BannerTimer::Factory factory() {
        return [this] { return std::make_unique<Timer>(*this); };
    }

    // Fires every countdown now running that was set for `delay`; gives how many there were.
    int fire(std::chrono::milliseconds delay) {
        std::vector<Timer*> due;
        for (Timer* timer : timers_)
            if (timer->delay == delay) due.push_back(timer);
        for (Timer* timer : due) {
            timer->delay.reset();
            const auto fire = timer->fire;
            fire();
        }
        return static_cast<int>(due.size());
    }

    int running(std::chrono::milliseconds delay) const {
        return static_cast<int>(
            std::ranges::count_if(timers_, [&](Timer* timer) { return timer->delay == delay; }));
    }

private:
    struct Timer final : BannerTimer {
        explicit Timer(HandClock& owner) : clock(owner) { clock.timers_.push_back(this); }
        ~Timer() override { std::erase(clock.timers_, this); }
        void start(std::chrono::milliseconds after, std::function<void()> callback) override {
            delay = after;
            fire = std::move(callback);
        }
        void stop() override { delay.reset(); }

        HandClock& clock;
        std::optional<std::chrono::milliseconds> delay;
        std::function<void()> fire;
    };

    std::vector<Timer*> timers_;
};

// The app's banners on the real X session: real events through the listener, real windows
// under openbox, a real xterm as the session's terminal, real pointer moves and clicks.
class BannerTest : public testing::Test {
protected:
    BannerTest() {
        fs::create_directories(claude);
        settings.set(SettingKey::claudeFolderOverride, QString::fromStdString(claude.string()));
        settings.set(SettingKey::hasSeenMenu, true);
        settings.set(SettingKey::rulesEnabled, false);
        app = std::make_unique<AppController>(
            settings, keychain, *desktop, std::make_unique<NetworkTransport>(),
            AppController::Options{.bannerTimers = clock.factory()});
        app->start();
        EXPECT_TRUE(test::settle([&] { return app->host().port().has_value(); }));
        QObject::connect(qApp, &QGuiApplication::focusWindowChanged, &watcher,
                         [this](QWindow* window) {
                             if (window) focused.push_back(window);
                         });
        QObject::connect(qApp, &QGuiApplication::applicationStateChanged, &watcher,
                         [this](Qt::ApplicationState state) {
                             if (state == Qt::ApplicationActive) activated = true;
                         });
        // Away from where banners appear.
        pointAt(100, 600);
    }

    ~BannerTest() override {
        for (QWindow* window : focused)
            ADD_FAILURE() << "a window of Norrow took the focus: " << window->title().toStdString();
        EXPECT_FALSE(activated) << "Norrow became the active application";
    }

    // Posts a Stop event to the listener, as the bridge does.
    void postStop(const std::string& session, const std::string& message,
                  const std::string& terminal = "/opt/nowhere/terminal") {
        const std::string body = R"({"hook_event_name":"Stop","session_id":")" + session +
                                 R"(","cwd":"/work/web","last_assistant_message":")" + message +
                                 R"(","term_app_path":")" + terminal + R"("})";
        const auto done =
            test::run({"curl", "-s", "-K", "-", "--data-binary", body,
                       "http://127.0.0.1:" + std::to_string(*app->host().port()) + "/v1/event"},
                      "header = \"Authorization: Bearer " + app->host().token() + "\"\n");
        ASSERT_EQ(done.out, "ok") << done.err;
    }

    // Waits until the presenter shows `count` banners.
    bool showing(std::size_t count) {
        return test::settle([&] { return app->banners().banners().size() == count; });
    }

    static xcb_window_t windowOf(Banner* banner) {
        return static_cast<xcb_window_t>(banner->panel().winId());
    }

    // Where the banner's window is once it has come to rest.
    std::optional<Rect> restingPlace(Banner* banner, const QPoint& expected) {
        std::optional<Rect> place;
        test::settle([&] {
            place = x.geometry(windowOf(banner));
            return place && place->x == expected.x() && place->y == expected.y();
        });
        return place;
    }

    // The usable part of the screen as the window manager publishes it.
    Rect workArea() {
        const auto area = x.cardinals(x.root(), "_NET_WORKAREA");
        if (area.size() < 4) return {};
        return {static_cast<int>(area[0]), static_cast<int>(area[1]), static_cast<int>(area[2]),
                static_cast<int>(area[3])};
    }

    xcb_window_t active() {
        const auto windows = x.windows(x.root(), "_NET_ACTIVE_WINDOW");
        return windows.empty() ? XCB_NONE : windows.front();
    }

    static void pointAt(int left, int top) {
        test::run({"xdotool", "mousemove", std::to_string(left), std::to_string(top)});
    }

    static void click(const Rect& where) {
        test::run({"xdotool", "mousemove", std::to_string(where.x + where.width / 2),
                   std::to_string(where.y + where.height / 2), "click", "1"});
    }

    // An xterm of class `windowClass`, and its managed window once openbox manages it.
    xcb_window_t openTerminal(const std::string& windowClass) {
        terminals.push_back(std::make_unique<test::Process>(std::vector<std::string>{
            "xterm", "-class", windowClass, "-xrm", "*waitforwm: false", "-e", "cat"}));
        xcb_window_t found = XCB_NONE;
        test::settle([&] {
            for (const xcb_window_t window : x.windows(x.root(), "_NET_CLIENT_LIST"))
                if (x.windowClass(window) == windowClass) found = window;
            return found != XCB_NONE;
        });
        return found;
    }

    test::TempDir top;
    fs::path claude = top / "claude";
    Settings settings{QString::fromStdString((top / "settings.ini").string())};
    test::MemoryKeychain keychain;
    std::unique_ptr<Desktop> desktop = Desktop::create();
    HandClock clock;
    test::XObserver x{std::getenv("DISPLAY")};
    std::vector<std::unique_ptr<test::Process>> terminals;
    std::unique_ptr<AppController> app;
    // Every window of this process that took the focus, and whether the app became active.
    std::vector<QWindow*> focused;
    bool activated = false;
    QObject watcher;
};

TEST_F(BannerTest, AStopEventShowsABannerWhoseClickBringsTheTerminalForward) {
    const xcb_window_t terminal = openTerminal("SessionTerm");
    ASSERT_NE(terminal, XCB_NONE);
    const std::string xterm = fs::canonical("/usr/bin/xterm").string();
    postStop("c0ffee00-1111-4222-8333-444455556666", "Fixed the **bug**. Tests pass.", xterm);
    ASSERT_TRUE(showing(1));
    Banner* banner = app->banners().banners().front();
    const xcb_window_t window = windowOf(banner);
    EXPECT_TRUE(test::settle([&] { return x.viewable(window); }));
    EXPECT_EQ(x.text(window, "_NET_WM_NAME"), "Fixed the bug. Tests pass.");

    // Top right of the usable screen, 18 down and 32 in.
    const Rect area = workArea();
    const QPoint corner(area.x + area.width - 344 - 32, area.y + 18);
    const auto place = restingPlace(banner, corner);
    ASSERT_TRUE(place);
    EXPECT_EQ(*place, (Rect{corner.x(), corner.y(), 344, 58}));

    // Somewhere else in front; openbox turns away an activation that follows another
    // window's within a second, and a person takes longer than that to reach the banner.
    const xcb_window_t elsewhere = openTerminal("OtherTerm");
    ASSERT_TRUE(test::settle([&] { return active() == elsewhere; }));
    // The window in front comes up under the banner, not over it.
    const auto stack = x.children(x.root());
    const auto topmost = std::find_if(stack.rbegin(), stack.rend(),
                                      [&](xcb_window_t child) { return x.viewable(child); });
    EXPECT_TRUE(topmost != stack.rend() && *topmost == window);
    test::settle([] { return false; }, 1200ms);
    click(*place);
    EXPECT_TRUE(test::settle([&] { return active() == terminal; }));
    EXPECT_TRUE(banner->dismissed());
    EXPECT_EQ(clock.fire(Banner::fadeOutDuration), 1);
    EXPECT_TRUE(app->banners().banners().empty());
    EXPECT_TRUE(test::settle([&] { return !x.viewable(window); }));
}

TEST_F(BannerTest, WithoutARunningTerminalAClickOnlyDismisses) {
    const xcb_window_t other = openTerminal("OtherTerm");
    ASSERT_TRUE(test::settle([&] { return active() == other; }));
    postStop("c0ffee00-1111-4222-8333-444455556667", "Done.");
    ASSERT_TRUE(showing(1));
    Banner* banner = app->banners().banners().front();
    const auto place = restingPlace(banner, app->banners().places().front());
    ASSERT_TRUE(place);
    test::settle([] { return false; }, 1200ms);
    click(*place);
    EXPECT_TRUE(test::settle([&] { return banner->dismissed(); }));
    EXPECT_EQ(active(), other);
}

TEST_F(BannerTest, AFourthBannerPushesOutTheOldestAndTheRestStackNewestFirst) {
    const std::vector<std::string> messages = {"First one.", "Second one.", "Third one.",
                                               "Fourth one."};
    for (std::size_t i = 0; i < messages.size(); ++i) {
        postStop("c0ffee00-1111-4222-8333-00000000000" + std::to_string(i), messages[i]);
        ASSERT_TRUE(showing(std::min<std::size_t>(i + 1, 3)));
    }
    ASSERT_TRUE(test::settle(
        [&] { return app->banners().banners().front()->content().summary() == "Fourth one."; }));
    // The oldest fades out; nothing else is going.
    EXPECT_EQ(clock.fire(Banner::fadeOutDuration), 1);
    ASSERT_EQ(app->banners().banners().size(), 3u);

    const Rect area = workArea();
    int y = area.y + 18;
    const std::vector<std::string> newestFirst = {"Fourth one.", "Third one.", "Second one."};
    for (std::size_t i = 0; i < 3; ++i) {
        Banner* banner = app->banners().banners()[i];
        EXPECT_EQ(banner->content().summary().toStdString(), newestFirst[i]);
        const QPoint expected(area.x + area.width - 344 - 32, y);
        const auto place = restingPlace(banner, expected);
        ASSERT_TRUE(place);
        EXPECT_EQ(*place, (Rect{expected.x(), expected.y(), 344, 58})) << newestFirst[i];
        EXPECT_TRUE(x.viewable(windowOf(banner)));
        y += 58 + 8;
    }

    // Each goes by itself after its time, and the others close up.
    EXPECT_EQ(clock.fire(Banner::lifetime), 3);
    EXPECT_EQ(clock.fire(Banner::fadeOutDuration), 3);
    EXPECT_TRUE(app->banners().banners().empty());
}

TEST_F(BannerTest, PointingAtABannerHoldsItAndLeavingRestartsTheFullWait) {
    postStop("c0ffee00-1111-4222-8333-444455550001", "Waiting for you.");
    ASSERT_TRUE(showing(1));
    Banner* banner = app->banners().banners().front();
    const auto place = restingPlace(banner, app->banners().places().front());
    ASSERT_TRUE(place);
    EXPECT_EQ(clock.running(Banner::lifetime), 1);

    pointAt(place->x + place->width / 2, place->y + place->height / 2);
    ASSERT_TRUE(test::settle([&] { return clock.running(Banner::lifetime) == 0; }));
    EXPECT_EQ(clock.fire(Banner::lifetime), 0);
    EXPECT_FALSE(banner->dismissed());
    EXPECT_TRUE(x.viewable(windowOf(banner)));

    pointAt(100, 600);
    ASSERT_TRUE(test::settle([&] { return clock.running(Banner::lifetime) == 1; }));
    EXPECT_EQ(clock.fire(Banner::lifetime), 1);
    EXPECT_TRUE(banner->dismissed());
    EXPECT_EQ(clock.fire(Banner::fadeOutDuration), 1);
    EXPECT_TRUE(app->banners().banners().empty());
}

TEST_F(BannerTest, AClickDuringTheFadeRunsTheActionOnce) {
    int clicks = 0;
    app->banners().show(QStringLiteral("Click me."), [&] { ++clicks; });
    Banner* banner = app->banners().banners().front();
    const auto place = restingPlace(banner, app->banners().places().front());
    ASSERT_TRUE(place);
    click(*place);
    ASSERT_TRUE(test::settle([&] { return clicks == 1; }));
    EXPECT_TRUE(banner->dismissed());
    EXPECT_EQ(clock.running(Banner::fadeOutDuration), 1);

    // Still on screen while it fades.
    click(*place);
    test::settle([&] { return clicks > 1; }, 500ms);
    EXPECT_EQ(clicks, 1);
    EXPECT_EQ(clock.running(Banner::fadeOutDuration), 1);
    EXPECT_EQ(clock.fire(Banner::fadeOutDuration), 1);
    EXPECT_TRUE(app->banners().banners().empty());
    pointAt(100, 600);
}

TEST_F(BannerTest, AShortSummaryKeepsTheLeastHeightAndALongOneIsCutToFourLines) {
    app->banners().show(QStringLiteral("Done"), {});
    const QString words = QStringLiteral(
        "The migration finished and every table now carries the new column, the indexes were "
        "rebuilt, the old backups were pruned, the nightly job was moved to three o'clock, and "
        "the report for the team is in the shared folder waiting for a review.");
    app->banners().show(words, {});
    Banner* longOne = app->banners().banners()[0];
    Banner* shortOne = app->banners().banners()[1];

    EXPECT_EQ(shortOne->content().lines(), QStringList{QStringLiteral("Done")});
    const auto shortPlace = restingPlace(shortOne, app->banners().places()[1]);
    ASSERT_TRUE(shortPlace);
    EXPECT_EQ(shortPlace->height, 58);

    const QStringList lines = longOne->content().lines();
    ASSERT_EQ(lines.size(), 4);
    EXPECT_TRUE(lines.back().endsWith(QChar(0x2026))) << lines.back().toStdString();
    const QFontMetricsF metrics(BannerContentView::labelFont());
    for (const QString& line : lines)
        EXPECT_LE(metrics.horizontalAdvance(line), 276) << line.toStdString();
    // The first three lines are the text's own beginning, unbroken words and all.
    EXPECT_TRUE(words.startsWith(lines.mid(0, 3).join(QLatin1Char(' '))));
    const auto longPlace = restingPlace(longOne, app->banners().places()[0]);
    ASSERT_TRUE(longPlace);
    EXPECT_EQ(longPlace->height, static_cast<int>(std::ceil(4 * metrics.lineSpacing())) + 22);
    EXPECT_EQ(longPlace->width, 344);
    // The short one sits below the tall one.
    EXPECT_EQ(shortPlace->y, longPlace->y + longPlace->height + 8);
}

// A tool's permission request as the bridge posts it to wait for the answer: curl prints
// what the listener answers, and a line feed once it has.
std::unique_ptr<test::Process> awaitAnswer(AppController& app, const std::string& session) {
    const std::string body = R"({"hook_event_name":"PermissionRequest","session_id":")" + session +
                             R"(","cwd":"/work/api","tool_name":"Bash","tool_input":)"
                             R"({"command":"npm test","description":"Run the tests"}})";
    const auto config = (fs::temp_directory_path() / ("norrow-answer-" + session)).string();
    std::ofstream(config) << "header = \"Authorization: Bearer " << app.host().token() << "\"\n";
    return std::make_unique<test::Process>(std::vector<std::string>{
        "curl", "-s", "-w", "\\n", "-K", config, "--data-binary", body,
        "http://127.0.0.1:" + std::to_string(*app.host().port()) + "/v1/permission"});
}

// Only a press on a banner's own button answers, and only the request it shows; the banner
// takes no keyboard meanwhile, and the session answering in the terminal lets the bridge go.
TEST_F(BannerTest, APermissionBannerAnswersByAPressOnItsButtonsAndOnlyThen) {
    const std::string allow = PermissionAnswer::hookOutput(PermissionAnswer::Choice::allow);
    const std::string deny = PermissionAnswer::hookOutput(PermissionAnswer::Choice::deny);
    for (const auto& [session, choice, output] :
         {std::tuple{"a1", std::optional(PermissionAnswer::Choice::allow), allow},
          std::tuple{"d2", std::optional(PermissionAnswer::Choice::deny), deny},
          std::tuple{"t3", std::optional<PermissionAnswer::Choice>(), std::string()}}) {
        SCOPED_TRACE(session);
        const auto curl = awaitAnswer(*app, session);
        ASSERT_TRUE(showing(1));
        Banner* banner = app->banners().banners().front();
        ASSERT_TRUE(banner->content().offersChoices());
        EXPECT_EQ(banner->content().toolTip(), QStringLiteral("Allow Bash: npm test"));
        const auto place = restingPlace(banner, app->banners().places().front());
        ASSERT_TRUE(place);
        // A press beside the buttons is no answer, and the banner stands until there is one.
        EXPECT_EQ(clock.running(Banner::lifetime), 0);
        if (choice) {
            test::settle([] { return false; }, 1200ms);
            const QRect button = banner->content().choiceRect(*choice);
            click({place->x + button.x(), place->y + button.y(), button.width(), button.height()});
            EXPECT_TRUE(test::settle([&] { return !banner->content().offersChoices(); }));
            EXPECT_EQ(clock.fire(Banner::decisionLinger), 1);
        } else {
            const std::string ran =
                R"({"hook_event_name":"PostToolUse","session_id":")" + std::string(session) + "\"}";
            test::run({"curl", "-s", "-K", "-", "--data-binary", ran,
                       "http://127.0.0.1:" + std::to_string(*app->host().port()) + "/v1/event"},
                      "header = \"Authorization: Bearer " + app->host().token() + "\"\n");
            ASSERT_TRUE(test::settle([&] { return banner->dismissed(); }));
        }
        EXPECT_EQ(curl->readLine(5s), output);
        EXPECT_EQ(curl->stop(SIGTERM), 0);
        clock.fire(Banner::fadeOutDuration);
        ASSERT_TRUE(test::settle([&] { return app->banners().banners().empty(); }));
        pointAt(100, 600);
    }
}

} // namespace
} // namespace norrow
