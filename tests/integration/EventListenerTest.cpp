#include "service/EventListener.h"

#include <arpa/inet.h>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <fcntl.h>
#include <fstream>
#include <gtest/gtest.h>
#include <ifaddrs.h>
#include <latch>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <set>
#include <sstream>
#include <sys/resource.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

namespace norrow {
namespace {

using namespace std::chrono_literals;

constexpr const char* kToken = "0123456789abcdef";
constexpr const char* kOkReply = "HTTP/1.1 200 OK\r\nContent-Type: text/plain; charset=utf-8\r\n"
                                 "Content-Length: 2\r\nConnection: close\r\n\r\nok";

std::string eventRequest(const std::string& body, const std::string& extraHeaders = "") {
    return "POST /v1/event HTTP/1.1\r\nAuthorization: Bearer " + std::string(kToken) + "\r\n" +
           extraHeaders +
           "Content-Type: application/json\r\nContent-Length: " + std::to_string(body.size()) +
           "\r\n\r\n" + body;
}

std::string stopEvent(const std::string& sessionId) {
    return eventRequest(R"({"hook_event_name":"Stop","session_id":")" + sessionId + R"("})");
}

// Stands in for the application's main thread: the listener posts tasks, the test thread
// runs them.
class MainQueue {
public:
    EventListener::PostToMain poster() {
        return [this](std::function<void()> task) {
            {
                const std::lock_guard lock(mutex_);
                tasks_.push_back(std::move(task));
            }
            posted_.notify_one();
        };
    }

    // Runs posted tasks until `done` holds; false when `limit` passes first.
    bool runUntil(const std::function<bool()>& done, std::chrono::milliseconds limit = 10s) {
        const auto deadline = std::chrono::steady_clock::now() + limit;
        while (!done()) {
            std::unique_lock lock(mutex_);
            if (!posted_.wait_until(lock, deadline, [this] { return !tasks_.empty(); }))
                return false;
            auto task = std::move(tasks_.front());
            tasks_.pop_front();
            lock.unlock();
            task();
        }
        return true;
    }

    // Runs whatever arrives within `quiet`, to see that nothing more than expected comes.
    void settle(std::chrono::milliseconds quiet = 300ms) {
        runUntil([] { return false; }, quiet);
    }

private:
    std::mutex mutex_;
    std::condition_variable posted_;
    std::deque<std::function<void()>> tasks_;
};

// A raw TCP client, so a test controls exactly which bytes go out and when.
class Client {
public:
    explicit Client(std::uint16_t port, const char* address = "127.0.0.1")
        : fd_(::socket(AF_INET, SOCK_STREAM, 0)) {
        const timeval timeout{10, 0};
        ::setsockopt(fd_, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout);
        const int one = 1;
        ::setsockopt(fd_, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
        sockaddr_in peer{};
        peer.sin_family = AF_INET;
        peer.sin_port = htons(port);
        ::inet_pton(AF_INET, address, &peer.sin_addr);
        connected_ = ::connect(fd_, reinterpret_cast<const sockaddr*>(&peer), sizeof peer) == 0;
    }
    ~Client() {
        if (fd_ >= 0) ::close(fd_);
    }
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    bool connected() const { return connected_; }
    int fd() const { return fd_; }

    void send(std::string_view bytes) {
        while (!bytes.empty()) {
            const ssize_t n = ::send(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
            if (n <= 0) return;
            bytes.remove_prefix(static_cast<std::size_t>(n));
        }
    }

    void dribble(std::string_view bytes, std::size_t chunk) {
        for (std::size_t at = 0; at < bytes.size(); at += chunk) {
            send(bytes.substr(at, chunk));
            std::this_thread::sleep_for(1ms);
        }
    }

    void finishSending() { ::shutdown(fd_, SHUT_WR); }

    // Closes with a reset instead of an orderly shutdown.
    void reset() {
        const linger abort{1, 0};
        ::setsockopt(fd_, SOL_SOCKET, SO_LINGER, &abort, sizeof abort);
        ::close(fd_);
        fd_ = -1;
    }

    // Everything the server sends until it closes the connection.
    std::string readAll() {
        std::string reply;
        char chunk[4096];
        for (ssize_t n; (n = ::recv(fd_, chunk, sizeof chunk, 0)) > 0;)
            reply.append(chunk, static_cast<std::size_t>(n));
        return reply;
    }

private:
    int fd_;
    bool connected_ = false;
};

std::string roundTrip(std::uint16_t port, std::string_view request) {
    Client client(port);
    client.send(request);
    return client.readAll();
}

// A listening socket on 127.0.0.1 that holds a port for the length of a test.
class PortHolder {
public:
    PortHolder() : fd_(::socket(AF_INET, SOCK_STREAM, 0)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        ::bind(fd_, reinterpret_cast<const sockaddr*>(&address), sizeof address);
        ::listen(fd_, 1);
        socklen_t size = sizeof address;
        ::getsockname(fd_, reinterpret_cast<sockaddr*>(&address), &size);
        port_ = ntohs(address.sin_port);
    }
    ~PortHolder() { release(); }
    PortHolder(const PortHolder&) = delete;
    PortHolder& operator=(const PortHolder&) = delete;

    std::uint16_t port() const { return port_; }
    void release() {
        if (fd_ >= 0) ::close(fd_);
        fd_ = -1;
    }

private:
    int fd_;
    std::uint16_t port_ = 0;
};

class EventListenerTest : public ::testing::Test {
protected:
    void create(EventListener::PostToMain post, bool withOnEvent = true) {
        listener = EventListener::create(kToken, std::move(post));
        if (withOnEvent)
            listener->setOnEvent([this](HookEvent event) { events.push_back(std::move(event)); });
        listener->setOnStateChange([this](bool listening) { states.push_back(listening); });
    }

    std::uint16_t startListening(std::optional<std::uint16_t> preferred = std::nullopt,
                                 bool withOnEvent = true) {
        if (!listener) create(mainQueue.poster(), withOnEvent);
        listener->start(preferred);
        EXPECT_TRUE(mainQueue.runUntil([this] { return !states.empty(); }));
        EXPECT_EQ(states, std::vector<bool>{true});
        return listener->port().value_or(0);
    }

    bool waitForEvents(std::size_t count) {
        return mainQueue.runUntil([&] { return events.size() >= count; });
    }

    MainQueue mainQueue;
    std::vector<HookEvent> events;
    std::vector<bool> states;
    std::shared_ptr<EventListener> listener;
};

TEST_F(EventListenerTest, AssemblesARequestThatArrivesInPieces) {
    const std::uint16_t port = startListening();
    const std::string request = stopEvent("dribbled");
    for (const std::size_t chunk : {1u, 2u, 7u, 61u}) {
        Client client(port);
        client.dribble(request, chunk);
        EXPECT_EQ(client.readAll(), kOkReply) << "chunks of " << chunk;
    }
    ASSERT_TRUE(waitForEvents(4));
    for (const auto& event : events)
        EXPECT_EQ(event.sessionId, "dribbled");
}

TEST_F(EventListenerTest, APeerThatStopsSendingEarlyGetsIncompleteRequest) {
    const std::uint16_t port = startListening();
    const std::string request = stopEvent("cut");
    for (const std::size_t cut :
         {std::size_t{0}, std::size_t{20}, request.find("\r\n\r\n") + 4, request.size() - 1}) {
        Client client(port);
        client.send(std::string_view(request).substr(0, cut));
        client.finishSending();
        EXPECT_EQ(client.readAll(),
                  "HTTP/1.1 400 Bad Request\r\nContent-Type: text/plain; charset=utf-8\r\n"
                  "Content-Length: 18\r\nConnection: close\r\n\r\nincomplete request")
            << "cut at " << cut;
    }
    mainQueue.settle();
    EXPECT_TRUE(events.empty());
}

// A terminated header block may be longer than the header limit, so a complete and valid
// request can be just over the overall limit: only the size check stands between it and a 200.
TEST_F(EventListenerTest, SizeGuardComesBeforeParsing) {
    const std::uint16_t port = startListening();
    constexpr std::size_t limit = 1'064'960;
    constexpr std::size_t bodySize = 1'048'576;
    const std::string bodyHead = R"({"hook_event_name":"Stop","message":")";
    const std::string body = bodyHead + std::string(bodySize - bodyHead.size() - 2, 'x') + "\"}";
    const auto requestOf = [&](std::size_t total) {
        const std::string bare = eventRequest(body, "X-Pad: \r\n");
        const std::size_t padding = total - bare.size();
        return eventRequest(body, "X-Pad: " + std::string(padding, 'p') + "\r\n");
    };
    const std::string atLimit = requestOf(limit);
    const std::string overLimit = requestOf(limit + 1);
    ASSERT_EQ(atLimit.size(), limit);
    ASSERT_EQ(overLimit.size(), limit + 1);

    EXPECT_EQ(roundTrip(port, overLimit),
              "HTTP/1.1 413 Payload Too Large\r\nContent-Type: text/plain; charset=utf-8\r\n"
              "Content-Length: 17\r\nConnection: close\r\n\r\npayload too large");
    EXPECT_EQ(roundTrip(port, atLimit), kOkReply);
    ASSERT_TRUE(waitForEvents(1));
    mainQueue.settle();
    ASSERT_EQ(events.size(), 1u);
    EXPECT_EQ(events[0].message->size(), bodySize - bodyHead.size() - 2);
}

TEST_F(EventListenerTest, ServesManyClientsAtOnceDeliveringEachEventOnce) {
    const std::uint16_t port = startListening();
    constexpr int clients = 64;
    std::vector<std::string> replies(clients);
    std::latch go(clients);
    std::vector<std::thread> threads;
    for (int i = 0; i < clients; ++i)
        threads.emplace_back([&, i] {
            Client client(port);
            go.arrive_and_wait();
            client.send(stopEvent("client-" + std::to_string(i)));
            replies[static_cast<std::size_t>(i)] = client.readAll();
        });
    for (auto& thread : threads)
        thread.join();
    for (const auto& reply : replies)
        EXPECT_EQ(reply, kOkReply);

    ASSERT_TRUE(waitForEvents(clients));
    mainQueue.settle();
    std::multiset<std::string> delivered;
    for (const auto& event : events)
        delivered.insert(event.sessionId.value_or(""));
    std::multiset<std::string> expected;
    for (int i = 0; i < clients; ++i)
        expected.insert("client-" + std::to_string(i));
    EXPECT_EQ(delivered, expected);
}

TEST_F(EventListenerTest, UsesThePreferredPortOrFallsBackOnceWhenItIsBusy) {
    PortHolder busy;
    const std::uint16_t fallback = startListening(busy.port());
    EXPECT_NE(fallback, 0);
    EXPECT_NE(fallback, busy.port());
    EXPECT_TRUE(listener->didFallBack());
    EXPECT_EQ(roundTrip(fallback, stopEvent("after fallback")), kOkReply);
    mainQueue.settle();
    EXPECT_EQ(states, std::vector<bool>{true});

    PortHolder free;
    free.release();
    listener.reset();
    states.clear();
    EXPECT_EQ(startListening(free.port()), free.port());
    EXPECT_FALSE(listener->didFallBack());
}

TEST_F(EventListenerTest, ReportsListeningOnceAndStopsOnStop) {
    const std::uint16_t port = startListening();
    mainQueue.settle();
    EXPECT_EQ(states, std::vector<bool>{true});

    listener->stop();
    EXPECT_FALSE(listener->port());
    mainQueue.settle();
    ASSERT_GE(states.size(), 2u);
    for (std::size_t i = 1; i < states.size(); ++i)
        EXPECT_FALSE(states[i]);
    EXPECT_FALSE(Client(port).connected());
}

// With no descriptor left the listener cannot even make a socket: the one failure that
// start itself reports, and nothing else happens.
TEST_F(EventListenerTest, StartFailsCleanlyWithoutSockets) {
#if defined(__SANITIZE_ADDRESS__)
    GTEST_SKIP() << "the sanitizer runtimes need descriptors of their own to check the error";
#endif
    create(mainQueue.poster());
    rlimit saved{};
    ::getrlimit(RLIMIT_NOFILE, &saved);
    const int lowestFree = ::open("/dev/null", O_RDONLY);
    ::close(lowestFree);
    rlimit exhausted = saved;
    exhausted.rlim_cur = static_cast<rlim_t>(lowestFree);
    ::setrlimit(RLIMIT_NOFILE, &exhausted);
    std::string error;
    try {
        listener->start(std::nullopt);
    } catch (const EventListener::ListenerError& e) {
        error = e.what();
    } catch (const std::exception& e) {
        error = std::string("unexpected error type: ") + e.what();
    }
    ::setrlimit(RLIMIT_NOFILE, &saved);
    EXPECT_TRUE(error.starts_with("listener failed to start: ")) << error;
    mainQueue.settle();
    EXPECT_TRUE(states.empty());
    EXPECT_FALSE(listener->port());

    EXPECT_NE(startListening(), 0);
}

TEST_F(EventListenerTest, RepliesOkEvenWithoutAnEventCallback) {
    const std::uint16_t port = startListening(std::nullopt, false);
    EXPECT_EQ(roundTrip(port, stopEvent("nobody listens")), kOkReply);
}

TEST_F(EventListenerTest, DeliversAnEventOnlyAfterItsReplyWasSent) {
    std::atomic<int> clientFd = -1;
    std::string peekedAtPost;
    std::vector<std::string> peekedAtDelivery;
    create([&, post = mainQueue.poster()](std::function<void()> task) {
        char buffer[512];
        const ssize_t n = ::recv(clientFd, buffer, sizeof buffer, MSG_PEEK | MSG_DONTWAIT);
        std::string peeked(buffer, n > 0 ? static_cast<std::size_t>(n) : 0);
        post([&, peeked = std::move(peeked), task = std::move(task)] {
            peekedAtPost = peeked;
            task();
        });
    });
    listener->setOnEvent([&](const HookEvent&) { peekedAtDelivery.push_back(peekedAtPost); });
    const std::uint16_t port = startListening();

    Client client(port);
    clientFd = client.fd();
    client.send(stopEvent("ordered"));
    // The client reads nothing until the event is through, so a peek shows what had
    // arrived when the delivery was scheduled.
    ASSERT_TRUE(mainQueue.runUntil([&] { return !peekedAtDelivery.empty(); }));
    EXPECT_EQ(peekedAtDelivery, std::vector<std::string>{kOkReply});
    EXPECT_EQ(client.readAll(), kOkReply);
}

// The owner may let go while the network thread is in the middle of connections: that must
// neither crash nor hang, whichever thread the last reference ends on.
TEST_F(EventListenerTest, CanBeDroppedWhileServing) {
    for (int round = 0; round < 20; ++round) {
        listener.reset();
        states.clear();
        const std::uint16_t port = startListening();
        std::atomic<bool> done = false;
        std::vector<std::thread> clients;
        for (int i = 0; i < 4; ++i)
            clients.emplace_back([&] {
                while (!done)
                    roundTrip(port, "GET / HTTP/1.1\r\n\r\n");
            });
        std::this_thread::sleep_for(5ms);
        listener.reset();
        done = true;
        for (auto& client : clients)
            client.join();
    }
}

// The IPv4 addresses listening on `port`, from the kernel's socket table (hex, as listed).
std::set<std::string> listeningAddresses(std::uint16_t port) {
    std::set<std::string> addresses;
    for (const char* table : {"/proc/net/tcp", "/proc/net/tcp6"}) {
        std::ifstream in(table);
        std::string line;
        std::getline(in, line);
        while (std::getline(in, line)) {
            std::istringstream fields(line);
            std::string slot, local, remote, state;
            fields >> slot >> local >> remote >> state;
            const auto colon = local.rfind(':');
            if (state == "0A" && std::stoul(local.substr(colon + 1), nullptr, 16) == port)
                addresses.insert(local.substr(0, colon));
        }
    }
    return addresses;
}

std::vector<std::string> otherLocalAddresses() {
    std::vector<std::string> found{"127.0.0.2"};
    ifaddrs* list = nullptr;
    if (::getifaddrs(&list) != 0) return found;
    for (const ifaddrs* it = list; it != nullptr; it = it->ifa_next) {
        if (it->ifa_addr == nullptr || it->ifa_addr->sa_family != AF_INET) continue;
        char text[INET_ADDRSTRLEN];
        ::inet_ntop(AF_INET, &reinterpret_cast<const sockaddr_in*>(it->ifa_addr)->sin_addr, text,
                    sizeof text);
        if (std::string_view(text) != "127.0.0.1") found.emplace_back(text);
    }
    ::freeifaddrs(list);
    return found;
}

TEST_F(EventListenerTest, BindsTheLoopbackAddressOnly) {
    const std::uint16_t port = startListening();
    if (std::ifstream("/proc/net/tcp")) {
        EXPECT_EQ(listeningAddresses(port), std::set<std::string>{"0100007F"});
    }
    EXPECT_TRUE(Client(port).connected());
    for (const auto& address : otherLocalAddresses())
        EXPECT_FALSE(Client(port, address.c_str()).connected()) << address;
}

TEST_F(EventListenerTest, SurvivesGarbage) {
    const std::uint16_t port = startListening();
    std::string noise(8192, '\0');
    std::uint32_t state = 12345;
    for (char& c : noise) {
        state = state * 1'103'515'245u + 12'345u;
        c = static_cast<char>(state >> 24);
    }
    const std::string inputs[] = {
        noise,
        std::string("\x16\x03\x01\x02\x00\x01\x00\x01\xfc\x03\x03", 11) + noise.substr(0, 500),
        "\r\n\r\n",
        "GET / HTTP/1.1\r\nHost: x\r\n\r\n",
        "POST /v1/event HTTP/1.1\r\nContent-Length: 99999999999999999999999\r\n\r\n",
        eventRequest(noise),
        std::string(20'000, 'h'),
    };
    for (const auto& input : inputs) {
        Client client(port);
        client.send(input);
        client.finishSending();
        client.readAll();
    }
    Client silent(port);
    Client reset(port);
    reset.send("POST /v1/event HTTP/1.1\r\nContent-Length: 50\r\n\r\n{");
    reset.reset();

    EXPECT_EQ(roundTrip(port, stopEvent("still here")), kOkReply);
    ASSERT_TRUE(waitForEvents(1));
    EXPECT_EQ(events[0].sessionId, "still here");
    EXPECT_EQ(listener->port(), port);
    EXPECT_EQ(states, std::vector<bool>{true});
}

} // namespace
} // namespace norrow
