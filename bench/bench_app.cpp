// The desktop app as a user starts it, under a private X session with a tray:
//  (1) time from starting the program until its listener accepts a connection,
//  (2) resident memory when idle and after 1,000 hook events posted over HTTP,
//  (3) CPU time and context switches over an idle period (nothing but timer ticks expected),
//  (4) time from a finished turn's request to its banner's window being mapped (each alert's
//      sound playing on a private sound server), and resident memory after 1,000 banners shown
//      and dismissed against after 10.
// Prints plain figures; nothing is enforced.
//
//   bench_app [idle seconds]    (default 60, or BENCH_IDLE_SECONDS; also BENCH_STARTS, default
//                               20, BENCH_EVENTS, default 1000, and BENCH_BANNERS, default 200)
#include "Percentile.h"
#include "support/Process.h"
#include "support/PulseServer.h"
#include "support/TempDir.h"
#include "support/VirtualDisplay.h"
#include "support/XObserver.h"

#include <algorithm>
#include <arpa/inet.h>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <netinet/in.h>
#include <nlohmann/json.hpp>
#include <poll.h>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using norrow::test::Environment;
using norrow::test::Process;
using norrow::test::TempDir;

constexpr auto startTimeout = 20s;
constexpr auto settleAfterStart = 3s;

double milliseconds(Clock::duration d) {
    return std::chrono::duration<double, std::milli>(d).count();
}

std::string read(const fs::path& file) {
    std::ifstream in(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

int envOr(const char* name, int fallback) {
    const char* value = std::getenv(name);
    return value && *value ? std::atoi(value) : fallback;
}

// A loopback TCP socket; closed when it goes out of scope.
class Socket {
public:
    Socket() : fd_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        if (fd_ < 0) throw std::runtime_error("cannot create a socket");
    }
    ~Socket() { ::close(fd_); }
    Socket(const Socket&) = delete;
    Socket& operator=(const Socket&) = delete;

    static sockaddr_in loopback(std::uint16_t port) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(port);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        return address;
    }
    bool connect(std::uint16_t port) {
        const sockaddr_in address = loopback(port);
        return ::connect(fd_, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
    }
    int fd() const { return fd_; }

private:
    int fd_;
};

// A port nobody holds right now, for the app to prefer.
std::uint16_t freePort() {
    Socket socket;
    sockaddr_in address = Socket::loopback(0);
    socklen_t size = sizeof address;
    if (::bind(socket.fd(), reinterpret_cast<const sockaddr*>(&address), size) != 0 ||
        ::getsockname(socket.fd(), reinterpret_cast<sockaddr*>(&address), &size) != 0)
        throw std::runtime_error("cannot find a free port");
    return ntohs(address.sin_port);
}

// One request per connection, as the bridge sends it; gives the response's status line.
std::string post(std::uint16_t port, const std::string& token, const std::string& body) {
    Socket socket;
    if (!socket.connect(port)) throw std::runtime_error("the listener refused a connection");
    const std::string request = "POST /v1/event HTTP/1.1\r\nHost: 127.0.0.1\r\n"
                                "Authorization: Bearer " +
                                token +
                                "\r\nContent-Type: application/json\r\n"
                                "Content-Length: " +
                                std::to_string(body.size()) + "\r\n\r\n" + body;
    for (std::size_t sent = 0; sent < request.size();) {
        const ssize_t n =
            ::send(socket.fd(), request.data() + sent, request.size() - sent, MSG_NOSIGNAL);
        if (n <= 0) throw std::runtime_error("the listener stopped reading");
        sent += static_cast<std::size_t>(n);
    }
    // The listener closes the connection after its response.
    std::string response;
    char buffer[1024];
    for (ssize_t n; (n = ::recv(socket.fd(), buffer, sizeof buffer, 0)) > 0;)
        response.append(buffer, static_cast<std::size_t>(n));
    return response.substr(0, response.find("\r\n"));
}

// The children of the calling thread, which is the thread that forks them.
std::set<pid_t> children() {
    const auto tid = ::syscall(SYS_gettid);
    std::istringstream list(read("/proc/self/task/" + std::to_string(tid) + "/children"));
    return {std::istream_iterator<pid_t>(list), std::istream_iterator<pid_t>()};
}

// A "Name:   value kB" line of /proc/PID/status (or of one thread's status).
long long statusField(const fs::path& status, const std::string& name) {
    std::istringstream text(read(status));
    for (std::string line; std::getline(text, line);)
        if (line.starts_with(name + ":")) return std::atoll(line.c_str() + name.size() + 1);
    return 0;
}

// What the kernel counts for a running process, summed over its threads where it matters.
struct Usage {
    double cpuMs = 0;   // utime + stime from /proc/PID/stat, in clock ticks turned into ms
    double onCpuMs = 0; // time on a CPU from each thread's schedstat, to the nanosecond
    long long voluntary = 0;
    long long involuntary = 0;
    std::vector<std::pair<std::string, long long>> voluntaryByThread;

    static Usage of(pid_t pid) {
        const fs::path proc = "/proc/" + std::to_string(pid);
        Usage usage;
        // The fields after the parenthesised command name, which may itself hold spaces.
        const std::string stat = read(proc / "stat");
        std::istringstream fields(stat.substr(stat.rfind(')') + 2));
        std::vector<std::string> values{std::istream_iterator<std::string>(fields),
                                        std::istream_iterator<std::string>()};
        // utime and stime are fields 14 and 15 of the whole line, 12 and 13 after the name.
        const double ticks = std::stod(values.at(11)) + std::stod(values.at(12));
        usage.cpuMs = ticks * 1000.0 / static_cast<double>(::sysconf(_SC_CLK_TCK));
        for (const auto& task : fs::directory_iterator(proc / "task")) {
            std::istringstream schedstat(read(task.path() / "schedstat"));
            double nanoseconds = 0;
            schedstat >> nanoseconds;
            usage.onCpuMs += nanoseconds / 1e6;
            const long long voluntary =
                statusField(task.path() / "status", "voluntary_ctxt_switches");
            usage.voluntary += voluntary;
            usage.involuntary += statusField(task.path() / "status", "nonvoluntary_ctxt_switches");
            std::string name = read(task.path() / "comm");
            name.erase(name.find_last_not_of('\n') + 1);
            usage.voluntaryByThread.emplace_back(name + "/" + task.path().filename().string(),
                                                 voluntary);
        }
        return usage;
    }
};

// A home of its own for each run of the app: settings, runtime folder and Claude Code folder,
// so it writes nowhere else. The session bus is pointed at nothing, so the token goes to these
// settings and never into the user's own keychain.
class Home {
public:
    // `settings`: further lines of the app's settings file; `more`: further environment.
    Home(std::uint16_t port, const std::string& display, const std::string& settings = "",
         Environment more = {})
        : port_(port), display_(display), more_(std::move(more)) {
        fs::create_directories(folder_ / "runtime");
        fs::permissions(folder_ / "runtime", fs::perms::owner_all);
        fs::create_directories(folder_ / "config/qelvane");
        fs::create_directories(claude() / "norrow/state");
        // A remembered port, so the start-up can be timed by connecting to it.
        std::ofstream(folder_ / "config/qelvane/Norrow.conf")
            << "[General]\nhasSeenMenu=true\nclaudeFolderOverride=" << claude().string()
            << "\nlistenerPort=" << port << "\n"
            << settings;
    }

    Environment environment() const {
        Environment environment = more_;
        environment.insert(
            {{"HOME", folder_.path().string()},
             {"XDG_CONFIG_HOME", (folder_ / "config").string()},
             {"XDG_RUNTIME_DIR", (folder_ / "runtime").string()},
             {"DBUS_SESSION_BUS_ADDRESS", "unix:path=" + (folder_ / "no-bus").string()},
             {"DISPLAY", display_},
             {"WAYLAND_DISPLAY", ""},
             {"NORROW_DEBUG", "1"}});
        return environment;
    }
    fs::path claude() const { return folder_ / "claude"; }
    std::uint16_t port() const { return port_; }

private:
    TempDir folder_;
    std::uint16_t port_;
    std::string display_;
    Environment more_;
};

// The app started by this program, with its port and token as it printed them.
class App {
public:
    explicit App(const Home& home) {
        const auto before = children();
        process_ =
            std::make_unique<Process>(std::vector<std::string>{NORROW_APP}, home.environment());
        const auto after = children();
        std::vector<pid_t> started;
        std::set_difference(after.begin(), after.end(), before.begin(), before.end(),
                            std::back_inserter(started));
        if (started.size() != 1) throw std::runtime_error("cannot tell the app's process id");
        pid = started.front();
    }
    // Quits the app as a user would, by SIGTERM, and says when it did not exit cleanly.
    ~App() {
        if (const int status = process_->stop(SIGTERM); status != 0)
            std::cerr << "bench_app: the app exited with " << status << ":\n" << process_->errors();
    }
    App(const App&) = delete;
    App& operator=(const App&) = delete;

    // Reads what NORROW_DEBUG makes the app print once its listener has reported.
    void readPortAndToken(std::uint16_t expectedPort) {
        const auto portLine = process_->readLine(startTimeout);
        const auto tokenLine = process_->readLine();
        if (!portLine || !portLine->starts_with("NORROW_PORT=") || !tokenLine ||
            !tokenLine->starts_with("NORROW_TOKEN="))
            throw std::runtime_error("the app printed no port and token:\n" + process_->errors());
        if (portLine->substr(12) != std::to_string(expectedPort))
            throw std::runtime_error("the app did not listen on its remembered port but on " +
                                     portLine->substr(12));
        token = tokenLine->substr(13);
    }

    // Returns once the app has used under a millisecond of CPU in each of two half seconds.
    void awaitIdle() const {
        const auto deadline = Clock::now() + 60s;
        double last = Usage::of(pid).onCpuMs;
        for (int quiet = 0; quiet < 2 && Clock::now() < deadline;) {
            std::this_thread::sleep_for(500ms);
            const double now = Usage::of(pid).onCpuMs;
            quiet = now - last < 1.0 ? quiet + 1 : 0;
            last = now;
        }
    }

    void printMemory(const std::string& when) const {
        const fs::path status = "/proc/" + std::to_string(pid) + "/status";
        std::printf("memory %-28s VmRSS %7.1f MiB   VmHWM %7.1f MiB\n", when.c_str(),
                    static_cast<double>(statusField(status, "VmRSS")) / 1024.0,
                    static_cast<double>(statusField(status, "VmHWM")) / 1024.0);
    }

    pid_t pid = 0;
    std::string token;

private:
    std::unique_ptr<Process> process_;
};

void timeStarts(const Home& home, int runs) {
    std::vector<double> samples;
    // The first start, not counted, creates the token and fills the page cache.
    for (int run = 0; run <= runs; ++run) {
        const auto start = Clock::now();
        App app(home);
        // A failed connect on loopback returns at once; a millisecond apart leaves the CPU
        // to the starting app.
        while (!Socket().connect(home.port())) {
            if (Clock::now() - start > startTimeout)
                throw std::runtime_error("the app never accepted a connection");
            std::this_thread::sleep_for(1ms);
        }
        const double elapsed = milliseconds(Clock::now() - start);
        app.readPortAndToken(home.port());
        if (run > 0) samples.push_back(elapsed);
    }
    using norrow::bench::percentile;
    std::printf("start to listening (%zu starts): min %.1f ms   median %.1f ms   p90 %.1f ms   "
                "max %.1f ms\n",
                samples.size(), percentile(samples, 0), percentile(samples, 0.5),
                percentile(samples, 0.9), percentile(samples, 1));
}

void measureIdle(const App& app, int seconds) {
    const Usage before = Usage::of(app.pid);
    std::this_thread::sleep_for(std::chrono::seconds(seconds));
    const Usage after = Usage::of(app.pid);
    std::printf("idle %d s: CPU (utime+stime) %.0f ms   on-CPU %.2f ms   context switches: "
                "%lld voluntary, %lld involuntary\n",
                seconds, after.cpuMs - before.cpuMs, after.onCpuMs - before.onCpuMs,
                after.voluntary - before.voluntary, after.involuntary - before.involuntary);
    std::printf("  voluntary by thread:");
    for (const auto& [thread, count] : after.voluntaryByThread) {
        const auto earlier =
            std::find_if(before.voluntaryByThread.begin(), before.voluntaryByThread.end(),
                         [&](const auto& entry) { return entry.first == thread; });
        std::printf("  %s %lld", thread.c_str(),
                    count - (earlier == before.voluntaryByThread.end() ? 0 : earlier->second));
    }
    std::printf("\n");
}

std::vector<nlohmann::json> corpusPayloads(const char* hookName) {
    std::vector<fs::path> files;
    for (const auto& entry : fs::directory_iterator(fs::path(NORROW_CORPUS_DIR) / "hook-payloads"))
        if (entry.path().extension() == ".json") files.push_back(entry.path());
    std::sort(files.begin(), files.end());
    std::vector<nlohmann::json> payloads;
    for (const auto& file : files) {
        auto payload = nlohmann::json::parse(read(file));
        if (payload.value("hook_event_name", "") == hookName) payloads.push_back(payload);
    }
    return payloads;
}

std::vector<std::string> corpusMessages() {
    std::vector<fs::path> files;
    for (const auto& entry :
         fs::directory_iterator(fs::path(NORROW_CORPUS_DIR) / "assistant-messages"))
        if (entry.path().extension() == ".md") files.push_back(entry.path());
    std::sort(files.begin(), files.end());
    std::vector<std::string> messages;
    for (const auto& file : files)
        messages.push_back(read(file));
    return messages;
}

// Turns of the corpus's real prompting sessions, one after another: each prompt as logged,
// then a Stop carrying a real assistant message, with what the bridge adds to both. Writes a
// state file per session, as the bridge would, so the menu lists them.
std::vector<std::string> hookEvents(const fs::path& claude, std::size_t count) {
    const auto prompts = corpusPayloads("UserPromptSubmit");
    const auto messages = corpusMessages();
    std::vector<std::string> bodies;
    for (std::size_t turn = 0; bodies.size() < count; ++turn) {
        nlohmann::json prompt = prompts[turn % prompts.size()];
        prompt["bridge_version"] = "dev";
        prompt["term_program"] = "xterm";
        prompt["term_app_path"] = "/usr/bin/xterm";
        nlohmann::json stop = prompt;
        stop.erase("prompt");
        stop["hook_event_name"] = "Stop";
        stop["stop_hook_active"] = false;
        stop["last_assistant_message"] = messages[turn % messages.size()];
        bodies.push_back(prompt.dump());
        bodies.push_back(stop.dump());
    }
    for (const auto& prompt : prompts)
        std::ofstream(claude / "norrow/state" / (prompt["session_id"].get<std::string>() + ".json"))
            << "{}";
    return bodies;
}

void postEvents(const App& app, const Home& home, std::size_t count) {
    const auto bodies = hookEvents(home.claude(), count);
    const Usage before = Usage::of(app.pid);
    const auto start = Clock::now();
    for (const auto& body : bodies)
        if (const auto status = post(home.port(), app.token, body); status != "HTTP/1.1 200 OK")
            throw std::runtime_error("the listener answered " + status);
    const double posting = milliseconds(Clock::now() - start);
    app.awaitIdle();
    const Usage after = Usage::of(app.pid);
    std::printf("%zu events posted in %.0f ms (%.0f/s); the app spent %.0f ms on-CPU on them "
                "(%.2f ms each)\n",
                bodies.size(), posting, static_cast<double>(bodies.size()) * 1000.0 / posting,
                after.onCpuMs - before.onCpuMs,
                (after.onCpuMs - before.onCpuMs) / static_cast<double>(bodies.size()));
}

// Waits for the next window to be mapped anywhere on the screen; false after `timeout`.
bool awaitMap(xcb_connection_t* x, Clock::duration timeout) {
    const auto deadline = Clock::now() + timeout;
    for (;;) {
        while (xcb_generic_event_t* event = xcb_poll_for_event(x)) {
            const bool mapped = (event->response_type & 0x7f) == XCB_MAP_NOTIFY;
            std::free(event);
            if (mapped) return true;
        }
        const auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
        if (left.count() <= 0) return false;
        pollfd readable{xcb_get_file_descriptor(x), POLLIN, 0};
        ::poll(&readable, 1, static_cast<int>(left.count()));
    }
}

// Finished turns, one at a time, each timed from the moment its request goes out until the
// window of its banner is mapped; the rules are off, so every turn is announced.
void timeBanners(const App& app, const Home& home, const std::string& display, int count) {
    norrow::test::XObserver x(display);
    const std::uint32_t mask = XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY;
    xcb_change_window_attributes(x.connection(), x.root(), XCB_CW_EVENT_MASK, &mask);
    xcb_flush(x.connection());
    const auto messages = corpusMessages();
    std::vector<double> samples;
    for (int i = 0; i < count; ++i) {
        nlohmann::json stop = {
            {"hook_event_name", "Stop"},
            {"session_id", "bench-" + std::to_string(i % 7)},
            {"cwd", "/work/project-" + std::to_string(i % 7)},
            {"last_assistant_message", messages[static_cast<std::size_t>(i) % messages.size()]}};
        while (awaitMap(x.connection(), 0ms)) {
        }
        const auto start = Clock::now();
        if (const auto status = post(home.port(), app.token, stop.dump());
            status != "HTTP/1.1 200 OK")
            throw std::runtime_error("the listener answered " + status);
        if (!awaitMap(x.connection(), 5s)) throw std::runtime_error("no banner was mapped");
        samples.push_back(milliseconds(Clock::now() - start));
    }
    using norrow::bench::percentile;
    std::printf("request to banner mapped (%d turns): p50 %.1f ms   p99 %.1f ms   max %.1f ms\n",
                count, percentile(samples, 0.5), percentile(samples, 0.99), percentile(samples, 1));
}

// Memory once `count` banners have been shown and have all gone again.
void bannersShownAndGone(const App& app, const Home& home, const std::string& display, int count) {
    timeBanners(app, home, display, count);
    // Six seconds on screen, then the fade.
    std::this_thread::sleep_for(7s);
    app.awaitIdle();
    app.printMemory("after " + std::to_string(count) + " banners, idle:");
}

} // namespace

int main(int argc, char** argv) {
    try {
        const int idleSeconds = argc > 1 ? std::atoi(argv[1]) : envOr("BENCH_IDLE_SECONDS", 60);
        const norrow::test::VirtualDisplay session({.tray = true});

        {
            const Home home(freePort(), session.display());
            timeStarts(home, envOr("BENCH_STARTS", 20));
        }

        const Home home(freePort(), session.display());
        App app(home);
        app.readPortAndToken(home.port());
        std::this_thread::sleep_for(settleAfterStart);
        app.printMemory("idle, 3 s after start:");
        measureIdle(app, idleSeconds);
        const int events = envOr("BENCH_EVENTS", 1000);
        postEvents(app, home, static_cast<std::size_t>(events));
        app.printMemory("after " + std::to_string(events) + " events, idle:");

        // Every turn announced, with its sound, as on a desktop with a sound server.
        const norrow::test::PulseServer sound;
        const Home announcing(freePort(), session.display(), "rule.enabled=false\n",
                              sound.environment());
        App shower(announcing);
        shower.readPortAndToken(announcing.port());
        std::this_thread::sleep_for(settleAfterStart);
        bannersShownAndGone(shower, announcing, session.display(), 10);
        bannersShownAndGone(shower, announcing, session.display(), envOr("BENCH_BANNERS", 200));
        bannersShownAndGone(shower, announcing, session.display(),
                            1000 - 10 - envOr("BENCH_BANNERS", 200));
    } catch (const std::exception& e) {
        std::cerr << "bench_app: " << e.what() << "\n";
        return 1;
    }
}
