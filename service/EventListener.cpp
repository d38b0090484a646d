#include "service/EventListener.h"

#include <asio.hpp>
#include <chrono>
#include <thread>

namespace norrow {

// The one serial network queue: an io_context run by a thread of its own.
struct EventListener::Network {
    asio::io_context io{1};
    asio::executor_work_guard<asio::io_context::executor_type> work = asio::make_work_guard(io);
    std::shared_ptr<asio::ip::tcp::acceptor> acceptor;
    // Tells the handlers of a replaced or stopped acceptor apart from the current one's.
    std::uint64_t generation = 0;
    std::thread thread;
};

// One request on one connection: read until the bytes parse, answer once, close.
class EventListener::Connection : public std::enable_shared_from_this<Connection> {
public:
    Connection(asio::ip::tcp::socket socket, EventListener& service)
        : socket_(std::move(socket)), service_(service) {}

    void receive() {
        auto self = shared_from_this();
        socket_.async_read_some(
            asio::buffer(chunk_),
            [self](const asio::error_code& error, std::size_t n) { self->received(error, n); });
    }

private:
    void received(const asio::error_code& error, std::size_t n) {
        const bool peerFinished = error == asio::error::eof;
        if (error && !peerFinished) return close();
        buffer_.append(chunk_.data(), n);
        if (buffer_.size() > RequestProtocol::maxRequestBytes)
            return respond(RequestProtocol::payloadTooLarge(), {});
        auto result = RequestProtocol::parse(buffer_);
        if (auto* bad = std::get_if<RequestProtocol::Bad>(&result))
            return respond({400, std::move(bad->message)}, {});
        if (auto* request = std::get_if<RequestProtocol::Request>(&result)) {
            auto decision = RequestProtocol::dispatch(*request, service_.token_);
            return respond(std::move(decision.reply), std::move(decision.event));
        }
        if (peerFinished) return respond(RequestProtocol::incompleteRequest(), {});
        receive();
    }

    // The event goes to the main thread only once its 200 reply has been sent.
    void respond(const RequestProtocol::Reply& reply, std::optional<HookEvent> event) {
        reply_ = reply.bytes();
        auto self = shared_from_this();
        asio::async_write(
            socket_, asio::buffer(reply_),
            [self, event = std::move(event)](const asio::error_code&, std::size_t) mutable {
                self->close();
                if (!event) return;
                self->service_.deliver(std::move(*event));
            });
    }

    void close() {
        asio::error_code ignored;
        socket_.shutdown(asio::ip::tcp::socket::shutdown_both, ignored);
        socket_.close(ignored);
    }

    asio::ip::tcp::socket socket_;
    EventListener& service_;
    // Left uninitialised: only the bytes each read delivers are used, and zeroing 64 KiB per
    // connection would cost more than parsing a typical request.
    std::array<char, RequestProtocol::maxReadBytes> chunk_;
    std::string buffer_;
    std::string reply_;
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
            if (!error) {
                std::make_shared<Connection>(std::move(socket), *this)->receive();
                return accept(generation);
            }
            // Out of descriptors or a connection reset before accept: keep listening, but give
            // the system a moment so a persistent error does not spin.
            auto timer =
                std::make_shared<asio::steady_timer>(network_->io, std::chrono::milliseconds(10));
            timer->async_wait(
                [this, generation, timer](const asio::error_code&) { accept(generation); });
        });
}

void EventListener::stop() {
    asio::post(network_->io, [this] {
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

void EventListener::deliver(HookEvent event) {
    postToMain_([weak = weak_from_this(), event = std::move(event)]() mutable {
        const auto self = weak.lock();
        if (self && self->onEvent_) self->onEvent_(std::move(event));
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
