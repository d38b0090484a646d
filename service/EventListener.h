#pragma once

#include "core/HookEvent.h"
#include "core/RequestProtocol.h"

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>

namespace norrow {

// Owns the loopback port the bridge posts to. Binds 127.0.0.1 only, prefers the port it had
// last time, falls back once to any free port, and reports accepted events and whether it
// is listening through the owner's "post to the main thread" function. All network work
// runs on one thread of its own.
class EventListener : public std::enable_shared_from_this<EventListener> {
public:
    using Request = RequestProtocol::Request;
    using ParseResult = RequestProtocol::ParseResult;
    // Runs a task on the owner's main thread, later, never synchronously.
    using PostToMain = std::function<void(std::function<void()>)>;

    class ListenerError : public std::runtime_error {
    public:
        enum class Case { failedToStart };
        explicit ListenerError(const std::string& text)
            : std::runtime_error("listener failed to start: " + text) {}
        Case kind() const { return Case::failedToStart; }
    };

    // How long a connection may stay open, from accept to close, whatever it sends.
    static constexpr std::chrono::seconds deadline{3};
    // Open connections at most; a new one closes the one that has been idle longest.
    static constexpr std::size_t maxConnections = 128;

    // A permission request whose sender waits on its connection for the user's answer. Such a
    // connection counts neither against `maxConnections` nor against `deadline`: it has a
    // window of its own, after which its sender gets no answer, and a cap of its own, past
    // which the one waiting longest gets none.
    using AnswerId = std::uint64_t;
    static constexpr std::chrono::seconds answerWindow{570};
    static constexpr std::size_t maxWaiting = 1024;

    static std::shared_ptr<EventListener> create(std::string token, PostToMain postToMain);
    ~EventListener();
    EventListener(const EventListener&) = delete;
    EventListener& operator=(const EventListener&) = delete;

    // Set before `start`; all run on the main thread only.
    void setOnEvent(std::function<void(HookEvent)> onEvent);
    void setOnStateChange(std::function<void(bool)> onStateChange);
    // A request whose sender waits for `answer` with its id; without it, or while answering
    // is off, every request is answered at once and goes to the event callback.
    void setOnRequest(std::function<void(HookEvent, AnswerId)> onRequest);

    // Whether senders may wait for an answer. Safe from any thread.
    void setAnswering(bool answering);
    // Gives the sender waiting under `id` the hook output (none: no answer), once, and then
    // tells `delivered` on the main thread whether it was still waiting. Safe from any thread.
    void answer(AnswerId id, std::optional<std::string> output,
                std::function<void(bool delivered)> delivered = {});

    // Starts listening; the outcome arrives through the state callback. Throws ListenerError
    // when no socket can be created at all.
    void start(std::optional<std::uint16_t> preferredPort);
    void stop();

    // The bound port, absent while not listening. Safe from any thread.
    std::optional<std::uint16_t> port() const;
    bool didFallBack() const;

private:
    struct Network;
    class Connection;

    EventListener(std::string token, PostToMain postToMain);
    void startOnQueue(std::optional<std::uint16_t> preferredPort);
    void accept(std::uint64_t generation);
    void ready(std::uint16_t port);
    void failed(std::optional<std::uint16_t> preferredPort);
    void cancelled();
    void notifyState(bool listening);
    // To the event callback, or with the id its sender waits under to the request callback.
    void deliver(HookEvent event, std::optional<AnswerId> awaiting = std::nullopt);
    // Whether a permission request's sender may wait: answering is on and someone listens.
    bool answers() const;
    // Ends every wait without an answer; on the network thread.
    void releaseWaiting();
    void setPort(std::optional<std::uint16_t> port);

    const std::string token_;
    const PostToMain postToMain_;
    std::unique_ptr<Network> network_;
    std::function<void(HookEvent)> onEvent_;
    std::function<void(bool)> onStateChange_;
    std::function<void(HookEvent, AnswerId)> onRequest_;
    std::atomic<bool> answering_ = false;
    std::atomic<bool> didFallBack_ = false;
    mutable std::mutex portLock_;
    std::optional<std::uint16_t> port_;
};

} // namespace norrow
