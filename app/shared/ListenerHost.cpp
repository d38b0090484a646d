#include "app/shared/ListenerHost.h"

#include "core/BridgeConfig.h"

#include <QCoreApplication>
#include <QtGlobal>

namespace norrow {

ListenerHost::ListenerHost(Settings& settings, SecretStore& keychain,
                           std::filesystem::path claudeFolder)
    : credentials_(keychain, settings), claudeFolder_(std::move(claudeFolder)) {
    rememberPort_.setSingleShot(true);
    rememberPort_.setInterval(rememberPortAfter);
    QObject::connect(&rememberPort_, &QTimer::timeout, [this] {
        if (const auto bound = port()) credentials_.rememberPort(*bound);
    });
    sweep_.setInterval(sweepInterval);
    QObject::connect(&sweep_, &QTimer::timeout, [this] {
        turns_.sweep(std::chrono::system_clock::now());
        if (onSweep_) onSweep_();
    });
}

ListenerHost::~ListenerHost() {
    stop();
}

void ListenerHost::setOnEvent(std::function<void(HookEvent)> onEvent) {
    onEvent_ = std::move(onEvent);
}

void ListenerHost::setOnStateChange(std::function<void(bool)> onStateChange) {
    onStateChange_ = std::move(onStateChange);
}

void ListenerHost::setOnSweep(std::function<void()> onSweep) {
    onSweep_ = std::move(onSweep);
}

void ListenerHost::setOnRequest(std::function<void(HookEvent, EventListener::AnswerId)> onRequest) {
    onRequest_ = std::move(onRequest);
}

void ListenerHost::setAnswering(bool answering) {
    answering_ = answering;
    if (listener_) listener_->setAnswering(answering);
}

void ListenerHost::answer(EventListener::AnswerId id,
                          std::optional<PermissionAnswer::Choice> choice,
                          std::function<void(bool)> delivered) {
    if (!listener_) return;
    std::optional<std::string> output;
    if (choice) output = PermissionAnswer::hookOutput(*choice);
    listener_->answer(id, std::move(output), std::move(delivered));
}

void ListenerHost::start(std::optional<std::uint16_t> port, std::optional<std::string> token) {
    token_ = token ? std::move(*token) : credentials_.token();
    listener_ = EventListener::create(token_, [](std::function<void()> task) {
        QMetaObject::invokeMethod(QCoreApplication::instance(), std::move(task),
                                  Qt::QueuedConnection);
    });
    listener_->setOnEvent([this](HookEvent event) {
        if (onEvent_) onEvent_(std::move(event));
    });
    listener_->setOnStateChange([this](bool listening) { stateChanged(listening); });
    if (onRequest_)
        listener_->setOnRequest([this](HookEvent event, EventListener::AnswerId id) {
            if (onRequest_) onRequest_(std::move(event), id);
        });
    listener_->setAnswering(answering_);
    listener_->start(port);
    sweep_.start();
}

void ListenerHost::stop() {
    rememberPort_.stop();
    sweep_.stop();
    if (listener_) listener_->stop();
}

std::optional<std::uint16_t> ListenerHost::port() const {
    return listener_ ? listener_->port() : std::nullopt;
}

void ListenerHost::publishBridgeConfig() {
    const auto bound = port();
    if (!bound || publishedPort_ == bound) return;
    try {
        BridgeConfig::write(*bound, token_, BridgeConfig::location(claudeFolder_));
        publishedPort_ = bound;
    } catch (const std::exception& e) {
        qWarning("Norrow: could not publish the bridge config: %s", e.what());
    }
}

void ListenerHost::stateChanged(bool listening) {
    if (listening) rememberPort_.start();
    if (onStateChange_) onStateChange_(listening);
}

} // namespace norrow
