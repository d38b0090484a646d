#include "app/shared/Credentials.h"

#include "core/Unicode.h"

#include <QUuid>
#include <array>
#include <cstdio>

#if defined(__APPLE__)
#include <stdlib.h>
#else
#include <sys/random.h>
#endif

namespace norrow {
namespace {

bool fillRandom(std::array<unsigned char, 32>& bytes) {
#if defined(__APPLE__)
    arc4random_buf(bytes.data(), bytes.size());
    return true;
#else
    std::size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t n = ::getrandom(bytes.data() + done, bytes.size() - done, 0);
        if (n <= 0) return false;
        done += static_cast<std::size_t>(n);
    }
    return true;
#endif
}

std::string uuidText() {
    return QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper().toStdString();
}

} // namespace

std::string Credentials::generateToken() {
    std::array<unsigned char, 32> bytes{};
    if (!fillRandom(bytes)) return uuidText() + uuidText();
    std::string token;
    token.reserve(64);
    for (const unsigned char b : bytes) {
        std::array<char, 3> hex{};
        std::snprintf(hex.data(), hex.size(), "%02x", b);
        token += hex.data();
    }
    return token;
}

std::string Credentials::token() {
    if (const auto stored = keychain_.read(service, account);
        stored && !stored->empty() && unicode::isValidUtf8(*stored))
        return *stored;
    // Also a store written before it was kept private is made so.
    if (const auto fallback = settings_.string(SettingKey::bridgeTokenFallback);
        fallback && !fallback->isEmpty()) {
        settings_.restrictToOwner();
        return fallback->toStdString();
    }
    const std::string fresh = generateToken();
    if (!keychain_.replace(service, account, fresh)) {
        settings_.restrictToOwner();
        settings_.set(SettingKey::bridgeTokenFallback, QString::fromStdString(fresh));
        settings_.sync();
    }
    return fresh;
}

std::optional<std::uint16_t> Credentials::preferredPort() const {
    const std::int64_t port = settings_.integer(SettingKey::listenerPort);
    if (port < 1 || port > 65535) return std::nullopt;
    return static_cast<std::uint16_t>(port);
}

void Credentials::rememberPort(std::uint16_t port) {
    settings_.set(SettingKey::listenerPort, static_cast<int>(port));
    settings_.sync();
}

} // namespace norrow
