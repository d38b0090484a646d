#include "core/BridgeConfig.h"

#include "core/Files.h"
#include "core/StrictJson.h"

#include <cstring>
#include <nlohmann/json.hpp>
#include <unistd.h>

namespace norrow {
namespace {

std::string describe(BridgeConfig::ConfigError::Case kind, const std::string& text) {
    if (kind == BridgeConfig::ConfigError::Case::writeFailed)
        return "could not write the bridge config: " + text;
    return text;
}

std::optional<std::uint16_t> portFrom(const nlohmann::json& value) {
    if (value.is_number_unsigned() || value.is_number_integer()) {
        if (value.is_number_integer() && !value.is_number_unsigned() &&
            value.get<std::int64_t>() < 0)
            return std::nullopt;
        const auto n = value.get<std::uint64_t>();
        if (n > 65535) return std::nullopt;
        return static_cast<std::uint16_t>(n);
    }
    if (!value.is_string()) return std::nullopt;
    std::string_view digits = value.get_ref<const std::string&>();
    if (!digits.empty() && digits.front() == '+') digits.remove_prefix(1);
    if (digits.empty() || digits.size() > 5) return std::nullopt;
    unsigned n = 0;
    for (const char c : digits) {
        if (c < '0' || c > '9') return std::nullopt;
        n = n * 10 + static_cast<unsigned>(c - '0');
    }
    if (n > 65535) return std::nullopt;
    return static_cast<std::uint16_t>(n);
}

} // namespace

BridgeConfig::ConfigError::ConfigError(Case kind, const std::string& text)
    : std::runtime_error(describe(kind, text)), kind_(kind) {}

std::string BridgeConfig::render(std::uint16_t port, const std::string& token) {
    nlohmann::json object = nlohmann::json::object();
    object["port"] = port;
    object["token"] = token;
    return object.dump();
}

void BridgeConfig::write(std::uint16_t port, const std::string& token,
                         const std::filesystem::path& file) {
    // The folder holds the token.
    if (const auto failure = files::makePrivateFolder(file.parent_path()))
        throw ConfigError(ConfigError::Case::platform, "cannot create the folder " +
                                                           failure->path.string() + ": " +
                                                           std::strerror(failure->error));
    const auto failure = files::writeAtomically(file, render(port, token),
                                                {.temporaryStem = "config.json.new", .mode = 0600});
    if (!failure) return;
    if (failure->step == files::AtomicWriteFailure::Step::rename)
        throw ConfigError(ConfigError::Case::writeFailed,
                          "rename to " + file.string() +
                              " failed: " + std::strerror(failure->error));
    throw ConfigError(ConfigError::Case::writeFailed,
                      "cannot create " + failure->temporary.string());
}

std::optional<BridgeConfig> BridgeConfig::read(const std::filesystem::path& file) {
    const auto text = files::read(file);
    if (!text) return std::nullopt;
    const nlohmann::json object = StrictJson::parse(*text);
    if (!object.is_object()) return std::nullopt;
    const auto token = object.find("token");
    if (token == object.end() || !token->is_string() ||
        token->get_ref<const std::string&>().empty())
        return std::nullopt;
    const auto port = object.find("port");
    if (port == object.end()) return std::nullopt;
    const auto value = portFrom(*port);
    if (!value) return std::nullopt;
    return BridgeConfig{*value, token->get<std::string>()};
}

void BridgeConfig::remove(const std::filesystem::path& file) {
    ::unlink(file.c_str());
}

std::filesystem::path BridgeConfig::location(const std::filesystem::path& claudeFolder) {
    return claudeFolder / "norrow" / "config.json";
}

} // namespace norrow
