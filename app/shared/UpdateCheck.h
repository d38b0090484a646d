#pragma once

#include "core/AppVersion.h"
#include "core/Seconds.h"

#include <QByteArray>
#include <QUrl>
#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace norrow {

// Asks the release endpoint now and then whether a newer version is out and keeps the last
// answer. The app's controller owns the one instance (rather than process-wide state); every
// call happens on the main thread.
class UpdateCheck {
public:
    using TimePoint = std::chrono::system_clock::time_point;
    using Clock = std::function<TimePoint()>;

    struct Release {
        std::string version;
        // The download page.
        QUrl url;

        bool operator==(const Release&) const = default;
        // The status menu's item that offers the release.
        std::string menuTitle() const;
    };

    // How the request goes out: HTTPS in the app, a stand-in in tests.
    class Transport {
    public:
        virtual ~Transport() = default;
        // Starts a plain GET that ignores locally cached data and gives up after
        // `timeout`, then calls `completion` exactly once, on the caller's thread, with
        // the response body whatever the status (empty when nothing came). Never calls it
        // once the transport is being destroyed.
        virtual void get(const QUrl& url, Seconds timeout,
                         std::function<void(const QByteArray& body)> completion) = 0;
    };

    // A failing endpoint is asked at most this often.
    static constexpr std::chrono::hours throttle{6};
    static constexpr std::chrono::seconds timeout{10};
    static QUrl defaultEndpoint();

    // `current` is the running version; a "dev" build never checks.
    explicit UpdateCheck(std::unique_ptr<Transport> transport,
                         std::string current = AppVersion::current(),
                         Clock clock = &std::chrono::system_clock::now,
                         QUrl endpoint = defaultEndpoint());
    UpdateCheck(const UpdateCheck&) = delete;
    UpdateCheck& operator=(const UpdateCheck&) = delete;

    // Starts a check unless one is under way or, without `force`, the last one is recent.
    // `changed` runs when the check completes and the available version differs.
    void run(bool force, std::function<void()> changed);

    const std::optional<Release>& available() const { return available_; }
    const std::optional<TimePoint>& lastChecked() const { return lastChecked_; }
    bool inFlight() const { return inFlight_; }

    // The release a response body announces, when it is newer than `current`.
    static std::optional<Release> parse(const QByteArray& body, std::string_view current);

private:
    void complete(std::optional<Release> found, const std::function<void()>& changed);

    const std::string current_;
    const Clock clock_;
    const QUrl endpoint_;
    std::optional<Release> available_;
    std::optional<TimePoint> lastChecked_;
    bool inFlight_ = false;
    // Last, so it goes first: no completion can arrive while the rest is being torn down.
    const std::unique_ptr<Transport> transport_;
};

} // namespace norrow
