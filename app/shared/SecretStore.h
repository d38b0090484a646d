#pragma once

#include <optional>
#include <string>

namespace norrow {

// A store of one secret per service and account (the system keychain, or a stand-in).
class SecretStore {
public:
    virtual ~SecretStore() = default;
    virtual std::optional<std::string> read(const std::string& service,
                                            const std::string& account) = 0;
    // Deletes any existing item, then adds the new one; false when the add failed.
    virtual bool replace(const std::string& service, const std::string& account,
                         const std::string& secret) = 0;
};

// The system keychain through QtKeychain (Secret Service on Linux, Keychain on macOS).
// Needs a QCoreApplication; each call waits for its job to finish.
class KeychainStore final : public SecretStore {
public:
    std::optional<std::string> read(const std::string& service,
                                    const std::string& account) override;
    bool replace(const std::string& service, const std::string& account,
                 const std::string& secret) override;
};

} // namespace norrow
