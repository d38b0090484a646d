#include "service/EventListener.h"

#include "core/RequestProtocol.h"
#include "support/Files.h"
#include "support/Sockets.h"

#include <asio.hpp>
#include <deque>
#include <filesystem>
#include <gtest/gtest.h>
#include <map>
#include <poll.h>
#include <set>
#include <sys/resource.h>
#include <sys/socket.h>
#include <thread>

namespace norrow {
namespace {

using namespace std::chrono_literals;

constexpr const char* kToken = "0123456789abcdef";
const std::string kOkReply = RequestProtocol::Reply{200, "ok"}.bytes();

std::string eventRequest(const std::string& body, const std::string& extraHeaders = "") {
    return "POST /v1/event HTTP/1.1\r\nAuthorization: Bearer " + std::string(kToken) + "\r\n" +
           extraHeaders + "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
}

std::string stopEvent(const std::string& sessionId) {
    return eventRequest(R"({"hook_event_name":"Stop","session_id":")" + sessionId + R"("})");
}

asio::io_context io;

// A connection of its own, so a test controls exactly which bytes go out and when.
struct Client {
    explicit Client(std::uint16_t port, const char* address = "127.0.0.1") {
        asio::error_code error;
        socket.connect({asio::ip::make_address(address), port}, error);
        connected = !error;
        socket.set_option(asio::ip::tcp::no_delay(true), error);
    }

    // Sends `bytes` in pieces of `chunk`, pausing after each.
    void send(std::string_view bytes, std::size_t chunk = SIZE_MAX) {
        asio::error_code error;
        for (std::size_t at = 0; at < bytes.size() && !error; at += chunk) {
            asio::write(socket, asio::buffer(bytes.substr(at, chunk)), error);
            std::this_thread::sleep_for(1ms);
        }
    }

    // Everything the server sends until it closes the connection.
    std::string readAll() {
        std::string reply;
        asio::error_code error;
        asio::read(socket, asio::dynamic_buffer(reply), error);
        return reply;
    }

    std::optional<std::string> readUntilClosed(std::chrono::steady_clock::time_point until) {
        return test::readUntilClosed(socket.native_handle(), until);
    }

    asio::ip::tcp::socket socket{io};
    bool connected = false;
};

// Sends `bytes` on a new connection, optionally ends the sending side, and reads the reply.
std::string roundTrip(std::uint16_t port, std::string_view bytes, std::size_t chunk = SIZE_MAX,
                      bool halfClose = false) {
    Client client(port);
    client.send(bytes, chunk);
    if (halfClose) ::shutdown(client.socket.native_handle(), SHUT_WR);
    return client.readAll();
}

// Room for both ends of a few thousand connections, all in this process, for as long as it
// lives; false when the hard limit leaves too little.
class RoomForConnections {
public:
    RoomForConnections() {
        ::getrlimit(RLIMIT_NOFILE, &saved_);
        const rlimit roomy{std::min<rlim_t>(saved_.rlim_max, 4096), saved_.rlim_max};
        limit_ = roomy.rlim_cur;
        if (*this) ::setrlimit(RLIMIT_NOFILE, &roomy);
    }
    ~RoomForConnections() { ::setrlimit(RLIMIT_NOFILE, &saved_); }
    RoomForConnections(const RoomForConnections&) = delete;
    RoomForConnections& operator=(const RoomForConnections&) = delete;

    explicit operator bool() const { return limit_ >= 2500; }
    rlim_t limit() const { return limit_; }

private:
    rlimit saved_{};
    rlim_t limit_ = 0;
};

// The test thread stands in for the application's main thread, running what the listener posts.
class EventListenerTest : public ::testing::Test {
protected:
    // Runs posted tasks until `done` holds; false when `limit` passes first.
    bool runUntil(const std::function<bool()>& done, std::chrono::milliseconds limit = 10s) {
        const auto deadline = std::chrono::steady_clock::now() + limit;
        while (!done())
            if (tasks.run_one_until(deadline) == 0) return false;
        return true;
    }

    // Runs whatever arrives for a while, to see that nothing more than expected comes.
    void settle() {
        runUntil([] { return false; }, 300ms);
    }

    std::size_t collect(std::size_t count) {
        runUntil([&] { return events.size() >= count; });
        settle();
        return events.size();
    }

    void create(EventListener::PostToMain through, bool withOnEvent = true) {
        listener = EventListener::create(kToken, std::move(through));
        if (withOnEvent)
            listener->setOnEvent([this](HookEvent event) { events.push_back(std::move(event)); });
        listener->setOnStateChange([this](bool listening) { states.push_back(listening); });
    }

    std::uint16_t start(std::optional<std::uint16_t> preferred = std::nullopt) {
        if (!listener) create(post);
        listener->start(preferred);
        EXPECT_TRUE(runUntil([this] { return !states.empty(); }));
        EXPECT_EQ(states, std::vector<bool>{true});
        return listener->port().value_or(0);
    }

    asio::io_context tasks; // what the main thread would run
    const asio::executor_work_guard<asio::io_context::executor_type> keepWaiting{
        tasks.get_executor()};
    const EventListener::PostToMain post = [this](std::function<void()> task) {
        asio::post(tasks, std::move(task));
    };
    std::vector<HookEvent> events;
    std::vector<bool> states;
    std::shared_ptr<EventListener> listener;
};

// Junk, early ends and many open connections at once: each complete request gets one event.
TEST_F(EventListenerTest, AnswersEachCompleteRequestOnceWhateverElseArrives) {
    const std::uint16_t port = start();
    std::string noise;
    for (unsigned i = 0; i < 8192; ++i)
        noise += static_cast<char>(i * 2654435761u >> 24);
    const std::string junk[] = {noise, eventRequest(noise), std::string(20'000, 'h')};
    for (const auto& input : junk)
        roundTrip(port, input, SIZE_MAX, true);
    Client silent(port);
    {
        Client reset(port);
        reset.send("POST /v1/event HTTP/1.1\r\nContent-Length: 50\r\n\r\n{");
        reset.socket.set_option(asio::socket_base::linger(true, 0));
    }

    std::multiset<std::string> sent;
    const std::string request = stopEvent("pieces");
    const std::string incomplete = RequestProtocol::Reply{400, "incomplete request"}.bytes();
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
        if (whole) sent.insert("pieces");
    }

    std::deque<Client> clients;
    for (int i = 0; i < 64; ++i)
        clients.emplace_back(port);
    for (auto& client : clients) {
        const std::string id = "client-" + std::to_string(sent.size());
        client.send(stopEvent(id));
        sent.insert(id);
    }
    for (auto& client : clients)
        EXPECT_EQ(client.readAll(), kOkReply);
    ASSERT_EQ(collect(sent.size()), sent.size());
    std::multiset<std::string> delivered;
    for (const auto& event : events)
        delivered.insert(event.sessionId.value_or(""));
    EXPECT_EQ(delivered, sent);
    EXPECT_EQ(listener->port(), port);
    EXPECT_EQ(states, std::vector<bool>{true});
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
              (RequestProtocol::Reply{413, "payload too large"}.bytes()));
    EXPECT_EQ(roundTrip(port, requestOf(limit)), kOkReply);
    ASSERT_EQ(collect(1), 1u);
    EXPECT_TRUE(events[0].message == message);
}

// A thousand connections that never finish a request, and no descriptor left for a new
// one: a real event still goes through at once, and every hostile connection is answered or
// cut off by its deadline.
TEST_F(EventListenerTest, ARealEventGoesThroughHostileConnections) {
    const RoomForConnections room;
    if (!room) GTEST_SKIP() << "needs 2,500 open files, may have " << room.limit();
    const std::uint16_t port = start();
    const std::string payload =
        test::contents(std::filesystem::path(NORROW_CORPUS_DIR) / "hook-payloads/0004.json");

    std::deque<Client> idle, dripping, unauthenticated;
    for (int i = 0; i < 600; ++i)
        idle.emplace_back(port);
    for (int i = 0; i < 300; ++i)
        dripping.emplace_back(port).send("POST /v1/event HTTP/1.1\r\nX-Drip: ");
    const std::string partialBody = "POST /v1/event HTTP/1.1\r\nAuthorization: Bearer guess\r\n"
                                    "Content-Length: 1048576\r\n\r\n" +
                                    std::string(65'536, '{');
    for (int i = 0; i < 100; ++i)
        unauthenticated.emplace_back(port).send(partialBody);
    std::jthread drip([&](const std::stop_token& stop) {
        while (!stop.stop_requested()) {
            for (auto& client : dripping) {
                asio::error_code ignored;
                asio::write(client.socket, asio::buffer("a", 1), ignored);
            }
            std::this_thread::sleep_for(20ms);
        }
    });
    // The last connection opened has its answer, so the listener has taken in all of them.
    pollfd answered{unauthenticated.back().socket.native_handle(), POLLIN, 0};
    ASSERT_EQ(::poll(&answered, 1, 10'000), 1);

    // Every descriptor is taken, so the listener's next accept fails for want of one.
    asio::ip::tcp::socket real(io);
    real.open(asio::ip::tcp::v4());
    std::vector<int> taken;
    for (int fd; (fd = ::dup(real.native_handle())) >= 0;)
        taken.push_back(fd);
    EXPECT_EQ(errno, EMFILE);
    real.connect({asio::ip::address_v4::loopback(), port});
    asio::write(real, asio::buffer(eventRequest(payload)));
    const auto second = std::chrono::steady_clock::now() + 1s;
    EXPECT_EQ(test::readUntilClosed(real.native_handle(), second), kOkReply);
    EXPECT_TRUE(runUntil(
        [this] { return !events.empty(); },
        std::chrono::ceil<std::chrono::milliseconds>(second - std::chrono::steady_clock::now())));
    for (const int fd : taken)
        ::close(fd);
    drip.request_stop();
    drip.join();
    ASSERT_EQ(events.size(), 1u);
    EXPECT_EQ(events[0], HookEvent::decode(payload));

    const auto deadline = std::chrono::steady_clock::now() + EventListener::deadline + 2s;
    const std::string refused = RequestProtocol::Reply{401, "unauthorized"}.bytes();
    for (auto* group : {&idle, &dripping, &unauthenticated})
        for (auto& client : *group)
            EXPECT_EQ(client.readUntilClosed(deadline), group == &unauthenticated ? refused : "");
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
    // All of 127.0.0.0/8 reaches a wildcard socket, so 127.0.0.2 must be refused.
    EXPECT_FALSE(Client(port, "127.0.0.2").connected);
    settle();
    EXPECT_EQ(states, std::vector<bool>{true});

    listener->stop();
    EXPECT_FALSE(listener->port());
    settle();
    EXPECT_EQ(std::set(states.begin() + 1, states.end()), std::set<bool>{false});
    EXPECT_FALSE(Client(port).connected);

    // A fresh listener takes the freed port, and answers even with no one taking events.
    holder.reset();
    states.clear();
    create(post, false);
    EXPECT_EQ(start(busy), busy);
    EXPECT_FALSE(listener->didFallBack());
    EXPECT_EQ(roundTrip(busy, stopEvent("nobody listens")), kOkReply);
}

TEST_F(EventListenerTest, StartFailsCleanlyWithoutSockets) {
#if defined(__SANITIZE_ADDRESS__)
    GTEST_SKIP() << "the sanitizer runtimes need descriptors of their own to check the error";
#endif
    create(post);
    rlimit saved{};
    ::getrlimit(RLIMIT_NOFILE, &saved);
    const rlimit exhausted{0, saved.rlim_max};
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

TEST_F(EventListenerTest, DeliversAnEventOnlyAfterItsReplyWasSent) {
    std::atomic<int> clientFd = -1;
    std::string peekedAtLastPost;
    // The client reads nothing until the event is through, so a peek when the listener
    // posts shows what it had sent by then.
    create([&](std::function<void()> task) {
        char buffer[512];
        const ssize_t n = ::recv(clientFd, buffer, sizeof buffer, MSG_PEEK | MSG_DONTWAIT);
        peekedAtLastPost.assign(buffer, n > 0 ? static_cast<std::size_t>(n) : 0);
        post(std::move(task));
    });
    Client client(start());
    clientFd = client.socket.native_handle();
    client.send(stopEvent("ordered"));
    ASSERT_TRUE(runUntil([this] { return !events.empty(); }));
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

std::string permissionRequest(const std::string& tool, const std::string& session,
                              const std::string& token = kToken) {
    const std::string body = R"({"hook_event_name":"PermissionRequest","session_id":")" + session +
                             R"(","tool_name":")" + tool + R"(","tool_input":{"command":"ls"}})";
    return "POST /v1/permission HTTP/1.1\r\nAuthorization: Bearer " + token +
           "\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
}

// A bridge waiting for the user's answer gets its own answer once and nothing else: not
// another request's, not a replay, not an answer without the token. A thousand of them
// waiting past the connections' cap and deadline hold up no ordinary event, and all go
// without an answer when the listener stops.
TEST_F(EventListenerTest, AWaitingPermissionRequestGetsOnlyItsOwnAnswer) {
    const RoomForConnections room;
    if (!room) GTEST_SKIP() << "needs 2,500 open files, may have " << room.limit();
    std::map<std::string, EventListener::AnswerId> waiting;
    create(post);
    listener->setOnRequest([&](HookEvent event, EventListener::AnswerId id) {
        waiting.emplace(event.sessionId.value_or(""), id);
    });
    listener->setAnswering(true);
    const std::uint16_t port = start();
    const auto reply = [](const std::string& body) {
        return RequestProtocol::Reply{200, body}.bytes();
    };
    const std::string refused = RequestProtocol::Reply{401, "unauthorized"}.bytes();

    // What cannot be answered from a banner is answered at once, and without the token not at all.
    EXPECT_EQ(roundTrip(port, permissionRequest("AskUserQuestion", "q")), reply(""));
    EXPECT_EQ(roundTrip(port, permissionRequest("Bash", "t", "guess")), refused);

    // In bursts of fifty, well under the cap of connections still being read.
    std::deque<Client> clients;
    for (int i = 0; i < 1000; ++i) {
        clients.emplace_back(port).send(permissionRequest("Bash", std::to_string(i)));
        if (i % 50 == 49) {
            ASSERT_TRUE(runUntil([&] { return waiting.size() == clients.size(); }));
        }
    }
    EXPECT_EQ(events.size(), 1u); // the question

    std::this_thread::sleep_for(EventListener::deadline);
    const auto second = std::chrono::steady_clock::now() + 1s;
    Client ordinary(port);
    ordinary.send(stopEvent("s"));
    EXPECT_EQ(ordinary.readUntilClosed(second), kOkReply);
    EXPECT_TRUE(runUntil([&] { return events.size() == 2; }, 1s));

    const auto answer = [&](const std::string& session, const std::string& output) {
        std::optional<bool> delivered;
        listener->answer(waiting.at(session), output, [&](bool d) { delivered = d; });
        runUntil([&] { return delivered.has_value(); });
        return delivered.value_or(false);
    };
    EXPECT_TRUE(answer("7", "allow 7"));
    EXPECT_EQ(clients[7].readUntilClosed(std::chrono::steady_clock::now() + 1s), reply("allow 7"));
    EXPECT_FALSE(answer("7", "allow 7 again"));
    EXPECT_EQ(clients[8].readUntilClosed(std::chrono::steady_clock::now() + 100ms), std::nullopt);

    listener->stop();
    for (std::size_t i = 0; i < clients.size(); ++i) {
        if (i == 7) continue;
        EXPECT_EQ(clients[i].readUntilClosed(std::chrono::steady_clock::now() + 2s), reply(""))
            << i;
    }
}

} // namespace
} // namespace norrow
