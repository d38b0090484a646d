// Rebuilding the status menu with 50 live sessions, as the app does after every event and
// before the menu opens: the sessions from the bridge's state files, a name for each, the
// running terminal of the half whose last event named one (asked of the X server), and the
// real QMenu redrawn. Runs the controller under a private X session with a tray and one
// xterm.
//  - RefreshMenu: the steady state, names known from the sessions' events.
//  - FirstRefreshMenu: the first rebuild of a just-started app, every name read from its
//    session's transcript.
#include "Percentile.h"
#include "app/AppController.h"
#include "app/NetworkTransport.h"
#include "core/BridgeState.h"
#include "gui/GuiSupport.h"
#include "support/Eventually.h"
#include "support/Process.h"
#include "support/TempDir.h"
#include "support/VirtualDisplay.h"
#include "support/XObserver.h"

#include <QApplication>
#include <benchmark/benchmark.h>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <string>

namespace norrow {
namespace {

namespace fs = std::filesystem;

constexpr int sessionCount = 50;
constexpr char terminalClass[] = "BenchTerm";

std::string sessionId(int i) {
    char id[37];
    std::snprintf(id, sizeof id, "5e551011-aaaa-4bbb-8ccc-%012d", i);
    return id;
}

std::string projectFolder(int i) {
    return "/work/project-" + std::to_string(i);
}

// A Claude Code folder with the sessions' transcripts, and settings that point the app there.
// The state files that make the sessions live can be set aside, as before they were written.
class Desk {
public:
    Desk() {
        fs::create_directories(state_);
        for (int i = 0; i < sessionCount; ++i) {
            const fs::path project = claude_ / "projects" / ("-work-project-" + std::to_string(i));
            fs::create_directories(project);
            std::ofstream(project / (sessionId(i) + ".jsonl"))
                << R"({"type":"user","cwd":")" << projectFolder(i)
                << R"(","message":{"role":"user","content":"Fix the failing test"}})"
                << "\n";
            std::ofstream(state_ / (sessionId(i) + ".json")) << "{}";
        }
        settings.set(SettingKey::claudeFolderOverride, QString::fromStdString(claude_.string()));
        settings.set(SettingKey::hasSeenMenu, true);
    }

    std::unique_ptr<AppController> startApp() {
        auto app = std::make_unique<AppController>(settings, keychain, *desktop,
                                                   std::make_unique<NetworkTransport>(),
                                                   AppController::Options{});
        app->start();
        if (!test::settle([&] { return app->host().port().has_value(); }))
            throw std::runtime_error("the listener did not start");
        // Lets the rebuild that follows the listener's news run now rather than later.
        test::settle([] { return false; }, std::chrono::milliseconds(100));
        return app;
    }

    void setLive(bool live) {
        if (live != fs::exists(state_)) fs::rename(live ? aside_ : state_, live ? state_ : aside_);
    }

    Settings settings{QString::fromStdString((top_ / "settings.ini").string())};
    test::MemoryKeychain keychain;
    std::unique_ptr<Desktop> desktop = Desktop::create();

private:
    test::TempDir top_;
    fs::path claude_ = top_ / "claude";
    fs::path state_ = BridgeState::stateFolder(claude_);
    fs::path aside_ = top_ / "state-aside";
};

// An xterm on the session's display, once the window manager manages its window. Told not to
// wait for the window manager to answer its resizes.
class Terminal {
public:
    explicit Terminal(const std::string& display)
        : process_({"xterm", "-class", terminalClass, "-xrm", "*waitforwm: false", "-e", "sleep",
                    "3600"},
                   {{"DISPLAY", display}}) {
        test::XObserver x(display);
        if (!test::eventually([&] {
                for (const xcb_window_t window : x.windows(x.root(), "_NET_CLIENT_LIST"))
                    if (x.windowClass(window) == terminalClass) return true;
                return false;
            }))
            throw std::runtime_error("the xterm never showed up");
    }

    static std::string path() { return fs::canonical("/usr/bin/xterm").string(); }

private:
    test::Process process_;
};

// A finished turn of session `i`, as the bridge forwards it; every other one from the xterm.
HookEvent finishedTurn(int i) {
    HookEvent event(HookEvent::Name::stop);
    event.sessionId = sessionId(i);
    event.cwd = projectFolder(i);
    event.permissionMode = "default";
    event.stopHookActive = false;
    event.lastAssistantMessage = "Fixed the **parser** and added tests. All green.";
    event.bridgeVersion = "dev";
    if (i % 2 == 0) {
        event.termProgram = "xterm";
        event.termAppPath = Terminal::path();
    }
    return event;
}

// Checks that the menu shows what the benchmark claims to rebuild.
void expectMenu(AppController& app) {
    const MenuState state = app.menuState();
    int hosted = 0;
    for (const auto& session : state.sessions)
        hosted += session.host == terminalClass;
    if (state.sessions.size() != sessionCount || hosted != sessionCount / 2)
        throw std::runtime_error("the menu shows " + std::to_string(state.sessions.size()) +
                                 " sessions, " + std::to_string(hosted) + " in the xterm");
}

// The statistics take plain functions.
template <int permille> double percentileOf(const std::vector<double>& samples) {
    return bench::percentile(samples, permille / 1000.0);
}

// Each repetition times a single rebuild, so the statistics are over single rebuilds.
void singleRebuilds(benchmark::internal::Benchmark* benchmark) {
    benchmark->Unit(benchmark::kMillisecond)
        ->Iterations(1)
        ->ReportAggregatesOnly(true)
        ->ComputeStatistics("min", percentileOf<0>)
        ->ComputeStatistics("p90", percentileOf<900>)
        ->ComputeStatistics("p99", percentileOf<990>)
        ->ComputeStatistics("max", percentileOf<1000>);
}

} // namespace
} // namespace norrow

int main(int argc, char** argv) {
    using namespace norrow;
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    const test::TempDir home;
    const test::VirtualDisplay session({.tray = true});
    ::setenv("DISPLAY", session.display().c_str(), 1);
    ::unsetenv("WAYLAND_DISPLAY");
    ::setenv("QT_QPA_PLATFORM", "xcb", 1);
    ::setenv("HOME", home.path().c_str(), 1);
    QApplication qt(argc, argv);

    Desk desk;
    const Terminal terminal(session.display());
    const auto firstRefresh = [&](benchmark::State& state) {
        desk.setLive(false);
        const auto app = desk.startApp();
        desk.setLive(true);
        for (auto _ : state)
            app->refreshMenu();
    };
    std::unique_ptr<AppController> steady;
    const auto refresh = [&](benchmark::State& state) {
        if (!steady) {
            steady = desk.startApp();
            for (int i = 0; i < sessionCount; ++i)
                steady->handle(finishedTurn(i));
            expectMenu(*steady);
        }
        // What the event loop does between two rebuilds, such as reading the X server's news.
        QCoreApplication::processEvents();
        for (auto _ : state)
            steady->refreshMenu();
    };
    benchmark::RegisterBenchmark("FirstRefreshMenu", firstRefresh)
        ->Apply(singleRebuilds)
        ->Repetitions(30);
    benchmark::RegisterBenchmark("RefreshMenu", refresh)->Apply(singleRebuilds)->Repetitions(300);

    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
}
