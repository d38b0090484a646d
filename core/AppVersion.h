#pragma once

#include <optional>
#include <string>
#include <string_view>

// The running version and the rules for comparing versions.
namespace norrow::AppVersion {

inline constexpr std::string_view development = "dev";

// The version this build was stamped with, or "dev".
std::string current();
inline bool isRelease() {
    return current() != development;
}

// Whether `candidate` is a strictly later release than `base`. Decorated versions
// ("1.4-beta") are unreadable and never newer.
bool isNewer(std::string_view candidate, std::string_view base);

// Whether a bridge reporting `reported` differs from the running release.
bool bridgeIsStale(const std::optional<std::string>& reported, std::string_view running);
inline bool bridgeIsStale(const std::optional<std::string>& reported) {
    return bridgeIsStale(reported, current());
}

} // namespace norrow::AppVersion
