// The listener (`norrowctl serve --json`, with the usual 1,024 open-file limit) against
// hostile local clients:
//  (1) time for a real event, from connecting until its line is on the server's output,
//      alone and while 1,000 idle, dripping or unauthenticated half-sent connections are
//      held open;
//  (2) the server's peak resident memory (VmHWM) once 1,000 clients have each sent most of
//      a 1 MB body, without the token and with it;
//  (3) time for a real event while 1,000 permission requests wait for the user's answer (the
//      listener in this process, answering on, as in the desktop app).
// Prints plain figures; nothing is enforced.
//
//   bench_listener    (BENCH_TRIALS, default 20; BENCH_HOSTILE, default 1000; NORROWCTL, the
//                     server to measure, default the one built beside this benchmark)
#include "Percentile.h"
#include "service/EventListener.h"
#include "support/Process.h"
#include "support/Sockets.h"
#include "support/TempDir.h"

#include <arpa/inet.h>
#include <asio.hpp>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <netinet/in.h>
#include <optional>
#include <poll.h>
#include <sstream>
#include <stdexcept>
#include <string>
#include <sys/resource.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr const char* token = "bench0123456789abcdef0123456789abcdef0123456789abcdef0123456789";
constexpr auto eventTimeout = 10s;
constexpr std::size_t bodyBytes = 1'048'576;

std::string read(const fs::path& file) {
    std::ifstream in(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

std::string norrowctl() {
    const char* chosen = std::getenv("NORROWCTL");
    return chosen && *chosen ? chosen : NORROWCTL;
}

int envOr(const char* name, int fallback) {
    const char* value = std::getenv(name);
    return value && *value ? std::atoi(value) : fallback;
}

double milliseconds(Clock::duration d) {
    return std::chrono::duration<double, std::milli>(d).count();
}

// A "Name:   value kB" line of /proc/PID/status, in MiB.
double statusMiB(pid_t pid, const std::string& name) {
    std::istringstream text(read("/proc/" + std::to_string(pid) + "/status"));
    for (std::string line; std::getline(text, line);)
        if (line.starts_with(name + ":"))
            return static_cast<double>(std::atoll(line.c_str() + name.size() + 1)) / 1024.0;
    return 0;
}

void setOpenFiles(rlim_t soft) {
    rlimit limit{};
    ::getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = std::min(soft, limit.rlim_max);
    ::setrlimit(RLIMIT_NOFILE, &limit);
}

// A connected loopback socket; -1 when the connection failed.
int connectTo(std::uint16_t port) {
    const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (fd >= 0 && ::connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0)
        return fd;
    if (fd >= 0) ::close(fd);
    return -1;
}

// Sends what the peer takes; stops at the first error (the peer closed, or reset).
void sendAll(int fd, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t n = ::send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (n <= 0) return;
        bytes.remove_prefix(static_cast<std::size_t>(n));
    }
}

std::string requestHead(const std::string& bearer, std::size_t contentLength) {
    return "POST /v1/event HTTP/1.1\r\nHost: 127.0.0.1\r\nAuthorization: Bearer " + bearer +
           "\r\nContent-Type: application/json\r\nContent-Length: " +
           std::to_string(contentLength) + "\r\n\r\n";
}

enum class Hostility { idle, dripping, unauthenticated };

const char* nameOf(Hostility kind) {
    switch (kind) {
    case Hostility::idle:
        return "idle";
    case Hostility::dripping:
        return "dripping";
    case Hostility::unauthenticated:
        return "unauthenticated, 64 KiB of a 1 MB body";
    }
    return "";
}

// Connections held open from this side for as long as the object lives; dripping ones get
// a byte of a never-ending header every 20 ms.
class HostileClients {
public:
    HostileClients(std::uint16_t port, int count, Hostility kind) {
        const std::string partialBody = requestHead("guess", bodyBytes) + std::string(65'536, '{');
        for (int i = 0; i < count; ++i) {
            const int fd = connectTo(port);
            if (fd < 0) continue;
            fds_.push_back(fd);
            if (kind == Hostility::dripping) sendAll(fd, "POST /v1/event HTTP/1.1\r\nX-Drip: ");
            if (kind == Hostility::unauthenticated) sendAll(fd, partialBody);
        }
        if (kind == Hostility::dripping) drip_ = std::thread([this] { drip(); });
    }
    ~HostileClients() {
        stop_ = true;
        if (drip_.joinable()) drip_.join();
        for (const int fd : fds_)
            ::close(fd);
    }
    HostileClients(const HostileClients&) = delete;
    HostileClients& operator=(const HostileClients&) = delete;

private:
    void drip() {
        while (!stop_) {
            for (const int fd : fds_)
                ::send(fd, "a", 1, MSG_NOSIGNAL | MSG_DONTWAIT);
            std::this_thread::sleep_for(20ms);
        }
    }

    std::vector<int> fds_;
    std::atomic<bool> stop_ = false;
    std::thread drip_;
};

class Server {
public:
    explicit Server(const norrow::test::TempDir& home) {
        // The server gets the limit a desktop session usually gives; the clients more.
        setOpenFiles(1024);
        process_ = std::make_unique<norrow::test::Process>(
            std::vector<std::string>{norrowctl(), "serve", "--port", "0", "--token", token,
                                     "--claude-folder", (home / "claude").string(), "--json"},
            norrow::test::Environment{{"XDG_CONFIG_HOME", (home / "config").string()}});
        setOpenFiles(16'384);
        const std::string prefix = "listening on 127.0.0.1:";
        const auto line = process_->readLine(20s);
        if (!line || !line->starts_with(prefix))
            throw std::runtime_error("norrowctl serve did not start:\n" + process_->errors());
        port = static_cast<std::uint16_t>(std::stoi(line->substr(prefix.size())));
    }

    // The time from connecting until the event's line is out; none when it never came.
    std::optional<double> timeEvent(const std::string& payload) {
        const auto start = Clock::now();
        const int fd = connectTo(port);
        if (fd < 0) return std::nullopt;
        sendAll(fd, requestHead(token, payload.size()) + payload);
        const auto reply = norrow::test::readUntilClosed(fd, start + eventTimeout);
        ::close(fd);
        if (!reply || !reply->starts_with("HTTP/1.1 200")) return std::nullopt;
        const auto left =
            std::chrono::ceil<std::chrono::milliseconds>(start + eventTimeout - Clock::now());
        if (left.count() <= 0 || !process_->readLine(left)) return std::nullopt;
        return milliseconds(Clock::now() - start);
    }

    pid_t pid() const { return process_->pid(); }

    std::uint16_t port = 0;

private:
    std::unique_ptr<norrow::test::Process> process_;
};

void report(const std::string& what, const std::vector<double>& samples, int missed) {
    using norrow::bench::percentile;
    if (samples.empty()) {
        std::printf("%-52s no event within %lld s\n", what.c_str(),
                    static_cast<long long>(eventTimeout.count()));
        return;
    }
    std::printf("%-52s median %7.2f ms   p90 %7.2f ms   max %7.2f ms", what.c_str(),
                percentile(samples, 0.5), percentile(samples, 0.9), percentile(samples, 1));
    if (missed > 0) std::printf("   (%d of %zu never came)", missed, samples.size() + missed);
    std::printf("\n");
}

void timeEvents(Server& server, const std::string& payload, int trials, int hostile) {
    std::printf("time for a real event (%d trials; the connections are opened anew each trial)\n",
                trials);
    const auto measure = [&](const std::string& what, std::optional<Hostility> kind) {
        std::vector<double> samples;
        int missed = 0;
        for (int trial = 0; trial < trials; ++trial) {
            std::optional<HostileClients> clients;
            if (kind) clients.emplace(server.port, hostile, *kind);
            if (const auto elapsed = server.timeEvent(payload))
                samples.push_back(*elapsed);
            else
                ++missed;
        }
        report(what, samples, missed);
    };
    measure("  alone", std::nullopt);
    for (const auto kind : {Hostility::idle, Hostility::dripping, Hostility::unauthenticated})
        measure("  with " + std::to_string(hostile) + " " + nameOf(kind), kind);
}

// Each client sends the head and all but the last byte of a 1 MB body, and holds on.
void measureMemory(int clients, const std::string& bearer, const std::string& label) {
    const norrow::test::TempDir home;
    Server server(home);
    std::this_thread::sleep_for(300ms);
    const double before = statusMiB(server.pid(), "VmHWM");
    const std::string partial = requestHead(bearer, bodyBytes) + std::string(bodyBytes - 1, ' ');
    std::vector<int> fds;
    for (int i = 0; i < clients; ++i) {
        const int fd = connectTo(server.port);
        if (fd < 0) continue;
        sendAll(fd, partial);
        fds.push_back(fd);
    }
    // The server may still be reading what the clients sent: wait for the peak to settle.
    const auto end = Clock::now() + 20s;
    for (int steady = 0; steady < 4 && Clock::now() < end;) {
        const double peak = statusMiB(server.pid(), "VmHWM");
        std::this_thread::sleep_for(250ms);
        steady = statusMiB(server.pid(), "VmHWM") == peak ? steady + 1 : 0;
    }
    std::printf("peak memory, %d %-40s VmHWM %7.1f MiB (%.1f MiB before)\n", clients, label.c_str(),
                statusMiB(server.pid(), "VmHWM"), before);
    for (const int fd : fds)
        ::close(fd);
}

} // namespace

// The listener as the desktop app runs it, with its "main thread" here, while `waiting`
// permission requests wait for an answer that never comes.
void timeEventsWhileRequestsWait(const std::string& payload, int trials, int waiting) {
    asio::io_context main;
    auto work = asio::make_work_guard(main);
    std::thread mainThread([&] { main.run(); });
    std::atomic<int> requests = 0;
    auto listener = norrow::EventListener::create(
        token, [&](std::function<void()> task) { asio::post(main, std::move(task)); });
    std::atomic<std::uint16_t> port = 0;
    listener->setOnStateChange([&](bool) { port = listener->port().value_or(0); });
    listener->setOnEvent([](norrow::HookEvent) {});
    listener->setOnRequest([&](norrow::HookEvent, norrow::EventListener::AnswerId) { ++requests; });
    listener->setAnswering(true);
    listener->start(std::nullopt);
    while (port == 0)
        std::this_thread::sleep_for(1ms);
    const std::string body = R"({"hook_event_name":"PermissionRequest","session_id":"s",)"
                             R"("tool_name":"Bash","tool_input":{"command":"ls"}})";
    std::string request = requestHead(token, body.size()) + body;
    request.replace(request.find("/v1/event"), 9, "/v1/permission");
    std::vector<int> fds;
    for (int i = 0; i < waiting; ++i) {
        fds.push_back(connectTo(port));
        sendAll(fds.back(), request);
        // In bursts well under the cap of connections still being read.
        while (i % 50 == 49 && requests < i + 1)
            std::this_thread::sleep_for(1ms);
    }
    std::vector<double> samples;
    int missed = 0;
    for (int trial = 0; trial < trials; ++trial) {
        const auto start = Clock::now();
        const int fd = connectTo(port);
        sendAll(fd, requestHead(token, payload.size()) + payload);
        const auto reply = norrow::test::readUntilClosed(fd, start + eventTimeout);
        ::close(fd);
        if (reply && reply->starts_with("HTTP/1.1 200"))
            samples.push_back(milliseconds(Clock::now() - start));
        else
            ++missed;
    }
    report("  with " + std::to_string(requests.load()) + " permission requests waiting", samples,
           missed);
    listener->stop();
    for (const int fd : fds)
        ::close(fd);
    listener.reset();
    work.reset();
    mainThread.join();
}

int main() {
    const int trials = envOr("BENCH_TRIALS", 20);
    const int hostile = envOr("BENCH_HOSTILE", 1000);
    try {
        const std::string payload =
            read(fs::path(NORROW_CORPUS_DIR) / "hook-payloads" / "0004.json");
        {
            const norrow::test::TempDir home;
            Server server(home);
            timeEvents(server, payload, trials, hostile);
        }
        timeEventsWhileRequestsWait(payload, trials, hostile);
        measureMemory(hostile, "guess", "unauthenticated partial 1 MB bodies");
        measureMemory(hostile, token, "authenticated partial 1 MB bodies");
    } catch (const std::exception& e) {
        std::cerr << "bench_listener: " << e.what() << '\n';
        return 1;
    }
    return 0;
}
