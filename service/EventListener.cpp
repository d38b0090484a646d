#include "service/EventListener.h"

#include <array>
#include <asio.hpp>
#include <cerrno>
#include <chrono>
#include <list>
#include <map>
#include <thread>

namespace norrow {
namespace {

bool isOutOfDescriptors(const asio::error_code& error) {
    if (error.category() != asio::error::get_system_category()) return false;
    const int value = error.value();
    return value == EMFILE || value == ENFILE || value == ENOBUFS || value == ENOMEM;
}

} // namespace

// The one serial network queue: an io_context run by a thread of its own.
struct EventListener::Network {
    asio::io_context io{1};
    asio::executor_work_guard<asio::io_context::executor_type> work = asio::make_work_guard(io);
    std::shared_ptr<asio::ip::tcp::acceptor> acceptor;
    // Tells the handlers of a replaced or stopped acceptor apart from the current one's.
    std::uint64_t generation = 0;
    // Open connections, the one idle longest first.
    std::list<std::shared_ptr<Connection>> connections;
    // Connections whose sender waits for an answer, the one waiting longest first.
    std::map<AnswerId, std::shared_ptr<Connection>> waiting;
    AnswerId lastAnswerId = 0;
    // Every read lands here first, so an idle connection holds no buffer of its own.
    std::array<char, RequestProtocol::maxReadBytes> readBuffer;
    std::thread thread;
};

// One request on one connection: read until the bytes get an answer, reply once, then read
// and drop whatever the client still sends until it closes, so that it sees the reply rather
// than a reset. The deadline ends the connection at whatever stage it is.
class EventListener::Connection : public std::enable_shared_from_this<Connection> {
public:
    Connection(asio::ip::tcp::socket socket, EventListener& service)
        : socket_(std::move(socket)), deadline_(socket_.get_executor()), service_(service) {}

    void start() {
        auto& connections = service_.network_->connections;
        position_ = connections.insert(connections.end(), shared_from_this());
        armDeadline(EventListener::deadline);
        asio::error_code ignored;
        socket_.non_blocking(true, ignored);
        awaitData();
    }

    void close() {
        if (closed_) return;
        closed_ = true;
        const auto self = shared_from_this();
        if (listed_) service_.network_->connections.erase(position_);
        if (answerId_) service_.network_->waiting.erase(*answerId_);
        deadline_.cancel();
        asio::error_code ignored;
        socket_.shutdown(asio::ip::tcp::socket::shutdown_both, ignored);
        socket_.close(ignored);
    }

    // Ends the wait of a sender waiting for an answer with the hook output, or with none.
    void answer(std::optional<std::string> output) {
        if (!answerId_ || closed_) return;
        service_.network_->waiting.erase(*answerId_);
        answerId_.reset();
        armDeadline(EventListener::deadline);
        send(RequestProtocol::Reply{200, output.value_or(std::string())}.bytes(), false, {});
    }

private:
    // One wait at a time: an answer may come while the connection already waits to read.
    void awaitData() {
        if (awaiting_) return;
        awaiting_ = true;
        socket_.async_wait(asio::socket_base::wait_read,
                           [self = shared_from_this()](const asio::error_code& error) {
                               self->awaiting_ = false;
                               if (!self->closed_) self->readable(error);
                           });
    }

    void readable(const asio::error_code& waitError) {
        if (waitError) return close();
        auto& chunk = service_.network_->readBuffer;
        asio::error_code error;
        const std::size_t n = socket_.read_some(asio::buffer(chunk), error);
        if (error == asio::error::would_block) return awaitData();
        const bool peerFinished = error == asio::error::eof;
        if (error && !peerFinished) return close();
        if (listed_) markActive();
        if (replied_) return peerFinished ? close() : awaitData();
        buffer_.append(chunk.data(), n);
        auto decision = RequestProtocol::answer(buffer_, service_.token_, peerFinished);
        if (!decision) return awaitData();
        respond(std::move(*decision), peerFinished);
    }

    // Closes the connection once `after` has passed, or, for a waiting sender, ends its wait.
    void armDeadline(std::chrono::seconds after) {
        deadline_.expires_after(after);
        deadline_.async_wait([self = shared_from_this()](const asio::error_code& error) {
            if (error) return;
            if (self->answerId_)
                self->answer(std::nullopt);
            else
                self->close();
        });
    }

    // A permission request Norrow may answer: the connection leaves the others, waits for
    // the answer within its own window, and its event goes to the main thread at once.
    void await(HookEvent event) {
        auto& network = *service_.network_;
        network.connections.erase(position_);
        listed_ = false;
        const AnswerId id = ++network.lastAnswerId;
        answerId_ = id;
        network.waiting.emplace(id, shared_from_this());
        if (network.waiting.size() > EventListener::maxWaiting)
            network.waiting.begin()->second->answer(std::nullopt);
        armDeadline(EventListener::answerWindow);
        service_.deliver(std::move(event), id);
        // Reading on tells when the sender gives up waiting.
        awaitData();
    }

    // The event goes to the main thread only once its 200 reply has been sent.
    void respond(RequestProtocol::Decision decision, bool peerFinished) {
        replied_ = true;
        std::string().swap(buffer_);
        if (decision.awaitsAnswer && decision.event && !peerFinished && service_.answers())
            return await(std::move(*decision.event));
        send(decision.reply.bytes(), peerFinished, std::move(decision.event));
    }

    void send(std::string reply, bool peerFinished, std::optional<HookEvent> event) {
        reply_ = std::move(reply);
        asio::async_write(socket_, asio::buffer(reply_),
                          [self = shared_from_this(), event = std::move(event),
                           peerFinished](const asio::error_code& error, std::size_t) mutable {
                              if (event) self->service_.deliver(std::move(*event));
                              if (self->closed_) return;
                              if (error || peerFinished) return self->close();
                              asio::error_code ignored;
                              self->socket_.shutdown(asio::ip::tcp::socket::shutdown_send, ignored);
                              self->awaitData();
                          });
    }

    // Moves this connection to the end of the line for closing.
    void markActive() {
        auto& connections = service_.network_->connections;
        connections.splice(connections.end(), connections, position_);
    }

    asio::ip::tcp::socket socket_;
    asio::steady_timer deadline_;
    EventListener& service_;
    std::list<std::shared_ptr<Connection>>::iterator position_;
    // Whether it is among the capped connections; a waiting one is not.
    bool listed_ = true;
    std::optional<AnswerId> answerId_;
    std::string buffer_;
    std::string reply_;
    bool replied_ = false;
    bool awaiting_ = false;
    bool closed_ = false;
};

std::shared_ptr<EventListener> EventListener::create(std::string token, PostToMain postToMain) {
    return std::shared_ptr<EventListener>(
        new EventListener(std::move(token), std::move(postToMain)));
}

EventListener::EventListener(std::string token, PostToMain postToMain)
    : token_(std::move(token)), postToMain_(std::move(postToMain)),
      network_(std::make_unique<Network>()) {
    network_->thread = std::thread([network = network_.get()] { network->io.run(); });
}

// Network handlers refer to the service directly rather than owning it: the network thread
// never holds the last reference, so this always runs elsewhere and can wait for that thread,
// after which no handler can touch the service or post to the main thread any more.
EventListener::~EventListener() {
    network_->work.reset();
    network_->io.stop();
    if (network_->thread.joinable()) network_->thread.join();
}

void EventListener::setOnEvent(std::function<void(HookEvent)> onEvent) {
    onEvent_ = std::move(onEvent);
}

void EventListener::setOnStateChange(std::function<void(bool)> onStateChange) {
    onStateChange_ = std::move(onStateChange);
}

void EventListener::setOnRequest(std::function<void(HookEvent, AnswerId)> onRequest) {
    onRequest_ = std::move(onRequest);
}

bool EventListener::answers() const {
    return answering_ && onRequest_;
}

void EventListener::setAnswering(bool answering) {
    answering_ = answering;
    if (!answering) asio::post(network_->io, [this] { releaseWaiting(); });
}

void EventListener::releaseWaiting() {
    while (!network_->waiting.empty())
        network_->waiting.begin()->second->answer(std::nullopt);
}

void EventListener::answer(AnswerId id, std::optional<std::string> output,
                           std::function<void(bool)> delivered) {
    asio::post(network_->io, [this, id, output = std::move(output),
                              delivered = std::move(delivered)]() mutable {
        const auto found = network_->waiting.find(id);
        const bool waiting = found != network_->waiting.end();
        if (waiting) found->second->answer(std::move(output));
        if (delivered)
            postToMain_([delivered = std::move(delivered), waiting] { delivered(waiting); });
    });
}

void EventListener::start(std::optional<std::uint16_t> preferredPort) {
    // A socket that cannot even be created is the one failure reported to the caller;
    // binding problems arrive later as a failed state, like any listener's.
    asio::error_code error;
    try {
        // The first socket also sets up the network machinery, which needs descriptors too.
        asio::ip::tcp::socket probe(network_->io);
        probe.open(asio::ip::tcp::v4(), error);
    } catch (const std::system_error& e) {
        error = e.code();
    }
    if (error) throw ListenerError(error.message());
    asio::post(network_->io, [this, preferredPort] { startOnQueue(preferredPort); });
}

void EventListener::startOnQueue(std::optional<std::uint16_t> preferredPort) {
    if (network_->acceptor) {
        asio::error_code ignored;
        network_->acceptor->close(ignored);
    }
    const std::uint64_t generation = ++network_->generation;
    auto acceptor = std::make_shared<asio::ip::tcp::acceptor>(network_->io);
    network_->acceptor = acceptor;
    const asio::ip::tcp::endpoint endpoint(asio::ip::address_v4::loopback(),
                                           preferredPort.value_or(0));
    asio::error_code error;
    acceptor->open(endpoint.protocol(), error);
    if (!error) acceptor->set_option(asio::socket_base::reuse_address(true), error);
    if (!error) acceptor->bind(endpoint, error);
    if (!error) acceptor->listen(asio::socket_base::max_listen_connections, error);
    if (error) {
        acceptor->close(error);
        network_->acceptor.reset();
        return failed(preferredPort);
    }
    ready(acceptor->local_endpoint(error).port());
    accept(generation);
}

void EventListener::accept(std::uint64_t generation) {
    const auto acceptor = network_->acceptor;
    if (!acceptor || generation != network_->generation) return;
    acceptor->async_accept(
        [this, generation](const asio::error_code& error, asio::ip::tcp::socket socket) {
            if (error == asio::error::operation_aborted) {
                if (generation == network_->generation) cancelled();
                return;
            }
            auto& connections = network_->connections;
            if (!error) {
                if (connections.size() >= maxConnections) connections.front()->close();
                std::make_shared<Connection>(std::move(socket), *this)->start();
                return accept(generation);
            }
            // Out of descriptors: the connection idle longest makes room for the new one.
            if (isOutOfDescriptors(error) && !connections.empty()) {
                connections.front()->close();
                return accept(generation);
            }
            // Nothing to close, or a connection reset before accept: keep listening, but give
            // the system a moment so a persistent error does not spin.
            auto timer =
                std::make_shared<asio::steady_timer>(network_->io, std::chrono::milliseconds(10));
            timer->async_wait(
                [this, generation, timer](const asio::error_code&) { accept(generation); });
        });
}

void EventListener::stop() {
    asio::post(network_->io, [this] {
        // Whoever waits gets no answer now, rather than when its window ends.
        releaseWaiting();
        if (!network_->acceptor) return;
        asio::error_code ignored;
        network_->acceptor->close(ignored);
        network_->acceptor.reset();
    });
    setPort(std::nullopt);
    notifyState(false);
}

void EventListener::ready(std::uint16_t port) {
    setPort(port);
    notifyState(true);
}

void EventListener::failed(std::optional<std::uint16_t> preferredPort) {
    setPort(std::nullopt);
    if (preferredPort && !didFallBack_) {
        didFallBack_ = true;
        return startOnQueue(std::nullopt);
    }
    notifyState(false);
}

void EventListener::cancelled() {
    setPort(std::nullopt);
    notifyState(false);
}

void EventListener::notifyState(bool listening) {
    postToMain_([weak = weak_from_this(), listening] {
        const auto self = weak.lock();
        if (self && self->onStateChange_) self->onStateChange_(listening);
    });
}

void EventListener::deliver(HookEvent event, std::optional<AnswerId> awaiting) {
    postToMain_([weak = weak_from_this(), event = std::move(event), awaiting]() mutable {
        const auto self = weak.lock();
        if (!self) return;
        if (awaiting && self->onRequest_) self->onRequest_(std::move(event), *awaiting);
        if (!awaiting && self->onEvent_) self->onEvent_(std::move(event));
    });
}

std::optional<std::uint16_t> EventListener::port() const {
    const std::lock_guard lock(portLock_);
    return port_;
}

bool EventListener::didFallBack() const {
    return didFallBack_;
}

void EventListener::setPort(std::optional<std::uint16_t> port) {
    const std::lock_guard lock(portLock_);
    port_ = port;
}

} // namespace norrow
