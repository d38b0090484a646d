#include "app/shared/UpdateCheck.h"

#include "core/StrictJson.h"

#include <utility>

namespace norrow {

std::string UpdateCheck::Release::menuTitle() const {
    return "\u2B06\uFE0E  Version " + version + " is out \u2014 download it";
}

QUrl UpdateCheck::defaultEndpoint() {
    return QUrl(QStringLiteral(NORROW_UPDATE_ENDPOINT));
}

UpdateCheck::UpdateCheck(std::unique_ptr<Transport> transport, std::string current, Clock clock,
                         QUrl endpoint)
    : current_(std::move(current)), clock_(std::move(clock)), endpoint_(std::move(endpoint)),
      transport_(std::move(transport)) {}

void UpdateCheck::run(bool force, std::function<void()> changed) {
    if (current_ == AppVersion::development || inFlight_) return;
    if (!force && lastChecked_ && Seconds(clock_() - *lastChecked_) < throttle) return;
    inFlight_ = true;
    transport_->get(endpoint_, timeout,
                    [this, changed = std::move(changed)](const QByteArray& body) {
                        complete(parse(body, current_), changed);
                    });
}

void UpdateCheck::complete(std::optional<Release> found, const std::function<void()>& changed) {
    inFlight_ = false;
    // Also after a failure, so that a broken endpoint is not asked on every tick.
    lastChecked_ = clock_();
    const auto version = [](const std::optional<Release>& release) {
        return release ? std::optional<std::string>(release->version) : std::nullopt;
    };
    const bool differs = version(available_) != version(found);
    available_ = std::move(found);
    if (differs && changed) changed();
}

std::optional<UpdateCheck::Release> UpdateCheck::parse(const QByteArray& body,
                                                       std::string_view current) {
    const auto document = StrictJson::parse(
        std::string_view(body.constData(), static_cast<std::size_t>(body.size())));
    if (!document.is_object()) return std::nullopt;
    const auto version = document.find("version");
    const auto url = document.find("url");
    if (version == document.end() || !version->is_string() || url == document.end() ||
        !url->is_string())
        return std::nullopt;
    const auto& link = url->get_ref<const std::string&>();
    QUrl download(QString::fromStdString(link), QUrl::StrictMode);
    if (link.empty() || !download.isValid()) return std::nullopt;
    auto published = version->get<std::string>();
    if (!AppVersion::isNewer(published, current)) return std::nullopt;
    return Release{std::move(published), std::move(download)};
}

} // namespace norrow
