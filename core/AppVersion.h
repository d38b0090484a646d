#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace norrow {

// The running version and the rules for comparing versions.
class AppVersion {
public:
    static constexpr std::string_view development = "dev";

    // The version this build was stamped with, or "dev".
    static std::string current();
    static bool isRelease() { return current() != development; }

    // Whether `candidate` is a strictly later release than `base`. Decorated versions
    // ("1.4-beta") are unreadable and never newer.
    static bool isNewer(std::string_view candidate, std::string_view base);

    // Whether a bridge reporting `reported` differs from the running release.
    static bool bridgeIsStale(const std::optional<std::string>& reported) {
        return bridgeIsStale(reported, current());
    }
    static bool bridgeIsStale(const std::optional<std::string>& reported, std::string_view running);

private:
    // The dot-separated non-negative integers of a version, or absent when unreadable.
    static std::optional<std::vector<unsigned long long>> numbers(std::string_view version);
};

} // namespace norrow
