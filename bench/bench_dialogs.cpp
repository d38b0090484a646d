// How soon Norrow announces a real Claude Code's permission dialog, against the moment the
// dialog can be seen in the terminal: the client starts the PermissionRequest hook before it
// draws the dialog, so the alert may well come first, and the figure is then negative. Also
// how long the client waits on the bridge for each hook event, from its own debug log.
//
// Twenty Bash calls, each asking; the screen is read with tmux's capture-pane in a loop, and
// `norrowctl serve`'s lines are stamped as they arrive. Needs the pinned client that the agent
// tests install (`ctest -L agents`), or the npm registry to install it.
#include "Percentile.h"
#include "agents/Agents.h"
#include "support/AgentSession.h"
#include "support/Eventually.h"
#include "support/NorrowServer.h"

#include <atomic>
#include <condition_variable>
#include <cstdio>
#include <map>
#include <mutex>
#include <thread>

namespace norrow {
namespace {

using Clock = std::chrono::steady_clock;
using json = nlohmann::json;
using namespace std::chrono_literals;

constexpr int dialogs = 20;
// Between two reads of the screen, so that reading it leaves the client its share of the CPU.
constexpr auto pause = 5ms;

std::string command(int n) {
    return "touch file-" + std::to_string(100 + n);
}

json script() {
    json replies = json::object();
    for (int n = 0; n < dialogs; ++n)
        replies[command(n)] = {
            {{"tool_use",
              {{"name", "Bash"}, {"input", {{"command", command(n)}, {"description", "Touch"}}}}}},
            {{"text", "Done."}}};
    return {{"replies", replies}};
}

// serve's printed lines, each stamped as it arrives, read on a thread of their own.
class StampedLines {
public:
    explicit StampedLines(test::NorrowServer& server)
        : reader_([this, &server](std::stop_token stop) {
              while (!stop.stop_requested())
                  if (auto line = server.nextLine(100ms)) {
                      const auto arrived = Clock::now();
                      const std::lock_guard guard(lock_);
                      lines_.emplace_back(std::move(*line), arrived);
                      arrivedLine_.notify_all();
                  }
          }) {}

    // When the first line containing `text` arrived; nothing when none within `timeout`.
    std::optional<Clock::time_point> waitFor(const std::string& text,
                                             std::chrono::milliseconds timeout) {
        std::unique_lock guard(lock_);
        std::optional<Clock::time_point> found;
        arrivedLine_.wait_for(guard, timeout, [&] {
            for (const auto& [line, arrived] : lines_)
                if (line.find(text) != std::string::npos) found = arrived;
            return found.has_value();
        });
        return found;
    }

private:
    std::mutex lock_;
    std::condition_variable arrivedLine_;
    std::vector<std::pair<std::string, Clock::time_point>> lines_;
    std::jthread reader_;
};

double milliseconds(Clock::duration d) {
    return std::chrono::duration<double, std::milli>(d).count();
}

std::size_t runsOf(const test::AgentSession& session, const std::string& event) {
    std::size_t count = 0;
    for (const auto& run : session.hookRuns())
        count += run.event == event;
    return count;
}

int run() {
    const auto installed = test::npm::install(test::agents::claudeCode, NORROW_AGENTS_DIR);
    if (installed.error) {
        std::printf("skipped: %s\n", test::npm::describe(*installed.error));
        return 0;
    }
    test::AgentSession session(installed.program, {.script = script(), .logHooks = false});
    test::NorrowServer norrow(session, {});
    StampedLines lines(norrow);
    if (!session.start()) {
        std::fprintf(stderr, "the client did not start\n%s", session.diagnostics().c_str());
        return 1;
    }

    const auto shown = [&] {
        return session.terminal().screen().find("Do you want to proceed?") != std::string::npos;
    };
    std::vector<double> leads;
    std::vector<double> polls;
    for (int n = 0; n < dialogs; ++n) {
        const std::size_t stops = runsOf(session, "Stop");
        session.submit(command(n));
        std::optional<Clock::time_point> visible;
        const auto deadline = Clock::now() + 30s;
        while (!visible && Clock::now() < deadline) {
            // The dialog was drawn at the latest as this capture began.
            const auto before = Clock::now();
            if (shown()) visible = before;
            polls.push_back(milliseconds(Clock::now() - before));
            std::this_thread::sleep_for(pause);
        }
        const auto alerted = lines.waitFor("Allow Bash: " + command(n), 30s);
        if (!visible || !alerted) {
            std::fprintf(stderr, "dialog %d: %s\n%s", n, visible ? "no alert" : "never shown",
                         session.diagnostics().c_str());
            return 1;
        }
        leads.push_back(milliseconds(*alerted - *visible));
        // A key pressed as the dialog is drawn may come before it listens: pressed again.
        for (int tries = 0; tries < 5 && shown(); ++tries) {
            session.terminal().press({"Enter"});
            test::eventually([&] { return !shown(); }, 2s);
        }
        // The next prompt only once the turn is over, or it would join this one.
        if (!test::eventually([&] { return runsOf(session, "Stop") > stops; }, 30s)) {
            std::fprintf(stderr, "dialog %d: the turn did not end\n%s", n,
                         session.diagnostics().c_str());
            return 1;
        }
    }

    std::printf("dialog visible to alert line (%d dialogs; negative: the alert came first): "
                "p50 %+.0f ms   p99 %+.0f ms   min %+.0f ms   max %+.0f ms\n",
                dialogs, bench::percentile(leads, 0.5), bench::percentile(leads, 0.99),
                bench::percentile(leads, 0), bench::percentile(leads, 1));
    std::printf(
        "  the screen read every %.1f ms (median capture-pane %.1f ms, then %lld ms' pause)\n",
        bench::percentile(polls, 0.5) + milliseconds(pause), bench::percentile(polls, 0.5),
        static_cast<long long>(pause.count()));

    std::map<std::string, std::vector<double>> byEvent;
    std::vector<double> all;
    for (const auto& hook : session.hookRuns())
        if (hook.milliseconds && hook.command.find("/norrow/bridge") != std::string::npos) {
            byEvent[hook.event].push_back(*hook.milliseconds);
            all.push_back(*hook.milliseconds);
        }
    if (all.empty()) return 0;
    std::printf("bridge's run inside the client (its debug log, %zu runs): median %.0f ms   "
                "p99 %.0f ms\n",
                all.size(), bench::percentile(all, 0.5), bench::percentile(all, 0.99));
    for (const auto& [event, times] : byEvent)
        std::printf("  %-18s %3zu runs   median %4.0f ms   max %4.0f ms\n", event.c_str(),
                    times.size(), bench::percentile(times, 0.5), bench::percentile(times, 1));
    return 0;
}

} // namespace
} // namespace norrow

int main() {
    try {
        return norrow::run();
    } catch (const std::exception& e) {
        std::fprintf(stderr, "bench_dialogs: %s\n", e.what());
        return 1;
    }
}
