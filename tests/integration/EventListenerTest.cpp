#include "service/EventListener.h"

#include <algorithm>
#include <arpa/inet.h>
#include <condition_variable>
#include <deque>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <random>
#include <set>
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
           extraHeaders + "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
}

std::string stopEvent(const std::string& sessionId) {
    return eventRequest(R"({"hook_event_name":"Stop","session_id":")" + sessionId + R"("})");
}

// A raw TCP connection, so a test controls exactly which bytes go out and when.
struct Client {
    explicit Client(std::uint16_t port, const char* address = "127.0.0.1")
        : fd(::socket(AF_INET, SOCK_STREAM, 0)) {
        const timeval timeout{10, 0};
        ::setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout);
        const int one = 1;
        ::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
        sockaddr_in peer{};
        peer.sin_family = AF_INET;
        peer.sin_port = htons(port);
        ::inet_pton(AF_INET, address, &peer.sin_addr);
        connected = ::connect(fd, reinterpret_cast<const sockaddr*>(&peer), sizeof peer) == 0;
    }
    ~Client() { ::close(fd); }
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    // Sends `bytes` in pieces of `chunk`, pausing after each.
    void send(std::string_view bytes, std::size_t chunk = SIZE_MAX) {
        while (!bytes.empty()) {
            const ssize_t n = ::send(fd, bytes.data(), std::min(chunk, bytes.size()), MSG_NOSIGNAL);
            if (n <= 0) return;
            bytes.remove_prefix(static_cast<std::size_t>(n));
            if (chunk != SIZE_MAX) std::this_thread::sleep_for(1ms);
        }
    }

    // Everything the server sends until it closes the connection.
    std::string readAll() {
        std::string reply;
        char buffer[4096];
        for (ssize_t n; (n = ::recv(fd, buffer, sizeof buffer, 0)) > 0;)
            reply.append(buffer, static_cast<std::size_t>(n));
        return reply;
    }

    int fd;
    bool connected = false;
};

// Sends `bytes` on a new connection, optionally ends the sending side, and reads the reply.
std::string roundTrip(std::uint16_t port, std::string_view bytes, std::size_t chunk = SIZE_MAX,
                      bool halfClose = false) {
    Client client(port);
    client.send(bytes, chunk);
    if (halfClose) ::shutdown(client.fd, SHUT_WR);
    return client.readAll();
}

// The test thread stands in for the application's main thread: the listener posts tasks
// to `queue`, the test runs them.
class EventListenerTest : public ::testing::Test {
protected:
    EventListener::PostToMain poster() {
        return [this](std::function<void()> task) {
            const std::lock_guard lock(mutex);
            queue.push_back(std::move(task));
            posted.notify_one();
        };
    }

    // Runs posted tasks until `done` holds; false when `limit` passes first.
    bool runUntil(const std::function<bool()>& done, std::chrono::milliseconds limit = 10s) {
        const auto deadline = std::chrono::steady_clock::now() + limit;
        while (!done()) {
            std::unique_lock lock(mutex);
            if (!posted.wait_until(lock, deadline, [this] { return !queue.empty(); })) return false;
            auto task = std::move(queue.front());
            queue.pop_front();
            lock.unlock();
            task();
        }
        return true;
    }

    // Runs whatever arrives for a while, to see that nothing more than expected comes.
    void settle() {
        runUntil([] { return false; }, 300ms);
    }

    bool waitForEvents(std::size_t count) {
        return runUntil([&] { return events.size() >= count; });
    }

    void create(EventListener::PostToMain post, bool withOnEvent = true) {
        listener = EventListener::create(kToken, std::move(post));
        if (withOnEvent)
            listener->setOnEvent([this](HookEvent event) { events.push_back(std::move(event)); });
        listener->setOnStateChange([this](bool listening) { states.push_back(listening); });
    }

    std::uint16_t start(std::optional<std::uint16_t> preferred = std::nullopt) {
        if (!listener) create(poster());
        listener->start(preferred);
        EXPECT_TRUE(runUntil([this] { return !states.empty(); }));
        EXPECT_EQ(states, std::vector<bool>{true});
        return listener->port().value_or(0);
    }

    std::mutex mutex;
    std::condition_variable posted;
    std::deque<std::function<void()>> queue;
    std::vector<HookEvent> events;
    std::vector<bool> states;
    std::shared_ptr<EventListener> listener;
};

TEST_F(EventListenerTest, RepliesOnceTheRequestIsCompleteAndFailsWhenThePeerStopsEarly) {
    const std::uint16_t port = start();
    const std::string request = stopEvent("pieces");
    const std::string incomplete =
        "HTTP/1.1 400 Bad Request\r\nContent-Type: text/plain; charset=utf-8\r\n"
        "Content-Length: 18\r\nConnection: close\r\n\r\nincomplete request";
    const std::size_t headerEnd = request.find("\r\n\r\n") + 4;
    const std::pair<std::size_t, std::size_t> cutAndChunk[] = {
        {request.size(), 1}, {request.size(), 7}, {request.size(), 61},           {0, SIZE_MAX},
        {20, SIZE_MAX},      {headerEnd, 5},      {request.size() - 1, SIZE_MAX},
    };
    for (const auto& [cut, chunk] : cutAndChunk) {
        const bool whole = cut == request.size();
        EXPECT_EQ(roundTrip(port, request.substr(0, cut), chunk, !whole),
                  whole ? kOkReply : incomplete)
            << "cut at " << cut << " in chunks of " << chunk;
    }
    ASSERT_TRUE(waitForEvents(3));
    settle();
    ASSERT_EQ(events.size(), 3u);
    for (const auto& event : events)
        EXPECT_EQ(event.sessionId, "pieces");
}

// A terminated header block may exceed the header limit, so only the size guard stands
// between a just-too-large but valid request and a 200.
TEST_F(EventListenerTest, SizeGuardComesBeforeParsing) {
    const std::uint16_t port = start();
    constexpr std::size_t limit = 1'064'960;
    const std::string head = R"({"hook_event_name":"Stop","message":")";
    const std::string message(1'048'576 - head.size() - 2, 'x');
    const std::string body = head + message + "\"}";
    const auto requestOf = [&](std::size_t total) {
        const std::size_t padding = total - eventRequest(body, "X-Pad: \r\n").size();
        return eventRequest(body, "X-Pad: " + std::string(padding, 'p') + "\r\n");
    };
    EXPECT_EQ(roundTrip(port, requestOf(limit + 1)),
              "HTTP/1.1 413 Payload Too Large\r\nContent-Type: text/plain; charset=utf-8\r\n"
              "Content-Length: 17\r\nConnection: close\r\n\r\npayload too large");
    EXPECT_EQ(roundTrip(port, requestOf(limit)), kOkReply);
    ASSERT_TRUE(waitForEvents(1));
    settle();
    ASSERT_EQ(events.size(), 1u);
    EXPECT_TRUE(events[0].message == message);
}

TEST_F(EventListenerTest, ServesManyOpenConnectionsDeliveringEachEventOnce) {
    const std::uint16_t port = start();
    std::deque<Client> clients;
    for (int i = 0; i < 64; ++i)
        clients.emplace_back(port);
    std::multiset<std::string> sent;
    for (auto& client : clients) {
        const std::string id = "client-" + std::to_string(sent.size());
        client.send(stopEvent(id));
        sent.insert(id);
    }
    for (auto& client : clients)
        EXPECT_EQ(client.readAll(), kOkReply);
    ASSERT_TRUE(waitForEvents(sent.size()));
    settle();
    std::multiset<std::string> delivered;
    for (const auto& event : events)
        delivered.insert(event.sessionId.value_or(""));
    EXPECT_EQ(delivered, sent);
}

TEST_F(EventListenerTest, FallsBackOnceFromABusyPortAndReportsStop) {
    const std::uint16_t busy = start();
    auto holder = std::exchange(listener, nullptr);
    states.clear();
    const std::uint16_t port = start(busy);
    EXPECT_NE(port, 0);
    EXPECT_NE(port, busy);
    EXPECT_TRUE(listener->didFallBack());
    EXPECT_EQ(roundTrip(port, stopEvent("after fallback")), kOkReply);
    settle();
    EXPECT_EQ(states, std::vector<bool>{true});

    listener->stop();
    EXPECT_FALSE(listener->port());
    settle();
    EXPECT_EQ(std::set(states.begin() + 1, states.end()), std::set<bool>{false});
    EXPECT_FALSE(Client(port).connected);

    holder.reset();
    listener.reset();
    states.clear();
    EXPECT_EQ(start(busy), busy);
    EXPECT_FALSE(listener->didFallBack());
}

TEST_F(EventListenerTest, StartFailsCleanlyWithoutSockets) {
#if defined(__SANITIZE_ADDRESS__)
    GTEST_SKIP() << "the sanitizer runtimes need descriptors of their own to check the error";
#endif
    create(poster());
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
    }
    ::setrlimit(RLIMIT_NOFILE, &saved);
    EXPECT_TRUE(error.starts_with("listener failed to start: ")) << error;
    settle();
    EXPECT_TRUE(states.empty());
    EXPECT_FALSE(listener->port());
    EXPECT_NE(start(), 0);
}

TEST_F(EventListenerTest, RepliesOkWithoutAnEventCallback) {
    create(poster(), false);
    EXPECT_EQ(roundTrip(start(), stopEvent("nobody listens")), kOkReply);
}

TEST_F(EventListenerTest, DeliversAnEventOnlyAfterItsReplyWasSent) {
    std::atomic<int> clientFd = -1;
    std::string peekedAtLastPost;
    // The client reads nothing until the event is through, so a peek when the listener
    // posts shows what it had sent by then.
    create([&, post = poster()](std::function<void()> task) {
        char buffer[512];
        const ssize_t n = ::recv(clientFd, buffer, sizeof buffer, MSG_PEEK | MSG_DONTWAIT);
        peekedAtLastPost.assign(buffer, n > 0 ? static_cast<std::size_t>(n) : 0);
        post(std::move(task));
    });
    Client client(start());
    clientFd = client.fd;
    client.send(stopEvent("ordered"));
    ASSERT_TRUE(waitForEvents(1));
    EXPECT_EQ(peekedAtLastPost, kOkReply);
    EXPECT_EQ(client.readAll(), kOkReply);
}

// The owner may let go while connections are in flight, on whichever thread.
TEST_F(EventListenerTest, CanBeDroppedWhileServing) {
    for (int round = 0; round < 20; ++round) {
        listener.reset();
        states.clear();
        const std::uint16_t port = start();
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

// All of 127.0.0.0/8 reaches a wildcard socket, so 127.0.0.2 must be refused.
TEST_F(EventListenerTest, BindsTheLoopbackAddressOnly) {
    const std::uint16_t port = start();
    EXPECT_TRUE(Client(port).connected);
    EXPECT_FALSE(Client(port, "127.0.0.2").connected);
}

TEST_F(EventListenerTest, JunkNeverStopsTheListener) {
    const std::uint16_t port = start();
    std::independent_bits_engine<std::minstd_rand, 8, unsigned> random(12345);
    std::string noise(8192, '\0');
    std::generate(noise.begin(), noise.end(), [&] { return static_cast<char>(random()); });
    const std::string inputs[] = {
        noise,
        std::string("\x16\x03\x01\x02\x00\x01\x00\x01\xfc\x03\x03", 11) + noise.substr(0, 500),
        "\r\n\r\n",
        "GET / HTTP/1.1\r\nHost: x\r\n\r\n",
        "POST /v1/event HTTP/1.1\r\nContent-Length: 99999999999999999999999\r\n\r\n",
        eventRequest(noise),
        std::string(20'000, 'h'),
    };
    for (const auto& input : inputs)
        roundTrip(port, input, SIZE_MAX, true);
    Client silent(port);
    {
        Client reset(port);
        reset.send("POST /v1/event HTTP/1.1\r\nContent-Length: 50\r\n\r\n{");
        const linger abort{1, 0};
        ::setsockopt(reset.fd, SOL_SOCKET, SO_LINGER, &abort, sizeof abort);
    }
    EXPECT_EQ(roundTrip(port, stopEvent("still here")), kOkReply);
    ASSERT_TRUE(waitForEvents(1));
    EXPECT_EQ(events[0].sessionId, "still here");
    EXPECT_EQ(listener->port(), port);
    EXPECT_EQ(states, std::vector<bool>{true});
}

} // namespace
} // namespace norrow
