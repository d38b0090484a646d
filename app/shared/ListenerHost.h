#pragma once

#include "app/shared/Credentials.h"
#include "app/shared/SecretStore.h"
#include "app/shared/Settings.h"
#include "core/HookEvent.h"
#include "core/PermissionAnswer.h"
#include "core/SessionStore.h"
#include "service/EventListener.h"

#include <QTimer>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace norrow {

// What the desktop app and `norrowctl serve` both run around the listener: the bearer
// token, the listener on 127.0.0.1, the bridge config published once per bound port, the
// port remembered once listening has settled, and the periodic sweep of turns whose end
// never came. Lives on the Qt main thread; the listener's thread reaches it only through
// queued calls.
class ListenerHost {
public:
    // How long a fresh port must hold before it is remembered for the next launch.
    static constexpr std::chrono::milliseconds rememberPortAfter{500};
    static constexpr std::chrono::seconds sweepInterval{900};

    ListenerHost(Settings& settings, SecretStore& keychain, std::filesystem::path claudeFolder);
    ~ListenerHost();
    ListenerHost(const ListenerHost&) = delete;
    ListenerHost& operator=(const ListenerHost&) = delete;

    // Both run on the main thread; set them before `start`.
    void setOnEvent(std::function<void(HookEvent)> onEvent);
    // Every change between listening and not; also a start that failed.
    void setOnStateChange(std::function<void(bool listening)> onStateChange);
    // After each sweep of stale turns.
    void setOnSweep(std::function<void()> onSweep);
    // A tool's permission request whose bridge waits for the user's answer through `answer`.
    void setOnRequest(std::function<void(HookEvent, EventListener::AnswerId)> onRequest);
    // Whether bridges may wait for an answer at all.
    void setAnswering(bool answering);
    // Answers the bridge waiting under `id` (none: the user answered elsewhere, or nobody
    // will); `delivered` learns whether it was still waiting.
    void answer(EventListener::AnswerId id, std::optional<PermissionAnswer::Choice> choice,
                std::function<void(bool delivered)> delivered = {});

    // Starts listening, preferring `port` (absent: any free port); `token`, when given, is
    // demanded instead of the stored bridge token. Throws EventListener::ListenerError when
    // no socket can be made at all.
    void start(std::optional<std::uint16_t> port, std::optional<std::string> token = {});
    void stop();

    // The bound port, absent while not listening.
    std::optional<std::uint16_t> port() const;
    // The token the listener demands (empty before `start`).
    const std::string& token() const { return token_; }
    // The port remembered from an earlier run.
    std::optional<std::uint16_t> rememberedPort() const { return credentials_.preferredPort(); }

    // Writes "norrow/config.json" unless it already holds the bound port in this run.
    // Failures are logged and tried again on the next call.
    void publishBridgeConfig();

    SessionStore& turns() { return turns_; }
    const std::filesystem::path& claudeFolder() const { return claudeFolder_; }

private:
    void stateChanged(bool listening);

    Credentials credentials_;
    const std::filesystem::path claudeFolder_;
    SessionStore turns_;
    std::string token_;
    std::shared_ptr<EventListener> listener_;
    std::optional<std::uint16_t> publishedPort_;
    std::function<void(HookEvent)> onEvent_;
    std::function<void(bool)> onStateChange_;
    std::function<void()> onSweep_;
    std::function<void(HookEvent, EventListener::AnswerId)> onRequest_;
    bool answering_ = false;
    QTimer rememberPort_;
    QTimer sweep_;
};

} // namespace norrow
