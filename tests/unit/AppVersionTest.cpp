#include "core/AppVersion.h"

#include <gtest/gtest.h>

namespace norrow {
namespace {

TEST(AppVersion, IsNewerComparesReadableVersionsNumerically) {
    // Integers are read as the standard library reads them; anything unreadable is never newer.
    const std::tuple<const char*, const char*, bool> cases[] = {
        {"1.2.10", "1.2.9", true},  {"1.10", "1.9", true},      {"2", "1.99.99", true},
        {"1.2.1", "1.2", true},     {"1.2", "1.2.0", false},    {"1.2.0", "1.2", false},
        {"1.2.9", "1.2.10", false}, {"01.3", "1.2", true},      {"+1.3", "1.2", true},
        {"-0.3", "0.2", true},      {"1.3-beta", "1.2", false}, {"1.4a", "1.2", false},
        {"1..4", "1.2", false},     {"1.4.", "1.2", false},     {"", "1.2", false},
        {"-1.3", "1.2", false},     {"+-1", "0", false},        {"1. 3", "1.2", false},
        {"\xd9\xa3", "1", false},   {"1.3", "dev", false}};
    for (const auto& [candidate, base, newer] : cases)
        EXPECT_EQ(AppVersion::isNewer(candidate, base), newer) << candidate << " vs " << base;
    EXPECT_TRUE(AppVersion::isNewer("9223372036854775807", "1"));
    EXPECT_FALSE(AppVersion::isNewer("9223372036854775808", "1"));
}

TEST(AppVersion, BridgeIsStaleWhenAReleaseHearsAnotherVersionText) {
    const std::tuple<std::optional<std::string>, const char*, bool> cases[] = {
        {"1.2.0", "1.2.0", false}, {"1.1.9", "1.2.0", true},       {"1.3.0", "1.2.0", true},
        {"1.2.0", "1.2", true},    {std::nullopt, "1.2.0", false}, {"", "1.2.0", false},
        {"dev", "1.2.0", false},   {"1.1.9", "dev", false},
    };
    for (const auto& [reported, current, stale] : cases)
        EXPECT_EQ(AppVersion::bridgeIsStale(reported, current), stale)
            << reported.value_or("(absent)") << " vs " << current;
}

} // namespace
} // namespace norrow
