#pragma once

#include "app/shared/SecretStore.h"
#include "app/shared/Settings.h"

#include <cstdint>
#include <optional>
#include <string>

namespace norrow {

// The bridge token and the remembered listener port. The keychain is the token's source of
// truth; "bridgeTokenFallback" only matters while the keychain cannot be written.
class Credentials {
public:
    static constexpr const char* service = "com.qelvane.Norrow";
    static constexpr const char* account = "bridge-token";

    Credentials(SecretStore& keychain, Settings& settings)
        : keychain_(keychain), settings_(settings) {}

    // The token, created and stored on first use. Read afresh on every call.
    std::string token();
    // The port remembered under "listenerPort", when it is a valid port.
    std::optional<std::uint16_t> preferredPort() const;
    void rememberPort(std::uint16_t port);

    // 64 lower-case hexadecimal digits from the system's random source, or two UUIDs when
    // that source fails.
    static std::string generateToken();

private:
    SecretStore& keychain_;
    Settings& settings_;
};

} // namespace norrow
