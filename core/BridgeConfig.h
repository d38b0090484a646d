#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>

namespace norrow {

// The port and token the bridge script needs, published as "norrow/config.json".
struct BridgeConfig {
    std::uint16_t port = 0;
    std::string token;

    bool operator==(const BridgeConfig&) const = default;

    class ConfigError : public std::runtime_error {
    public:
        enum class Case {
            writeFailed, // the temporary file or the rename failed
            platform,    // the folder could not be made ready
        };
        ConfigError(Case kind, const std::string& text);
        Case kind() const { return kind_; }

    private:
        Case kind_;
    };

    // The file's exact bytes: compact, keys sorted, no trailing newline.
    static std::string render(std::uint16_t port, const std::string& token);
    // Writes atomically through a uniquely named "config.json.new.XXXXXX", so that concurrent
    // writers never collide: mode 0600 in a 0700 folder.
    static void write(std::uint16_t port, const std::string& token,
                      const std::filesystem::path& file);
    static std::optional<BridgeConfig> read(const std::filesystem::path& file);
    static void remove(const std::filesystem::path& file);

    // "norrow/config.json" inside a Claude Code folder.
    static std::filesystem::path location(const std::filesystem::path& claudeFolder);
};

} // namespace norrow
