#include "core/RelativeTime.h"

#include <chrono>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace norrow {
namespace {

using namespace std::chrono_literals;

TEST(RelativeTimeTest, TheLargestWholeUnitSpelledOut) {
    const RelativeTime relativeTime("en_US");
    const RelativeTime::Date now(1'800'000'000s);
    const std::vector<std::pair<std::chrono::duration<double>, std::string>> cases = {
        {0s, "in 0 seconds"},        {-1s, "1 second ago"},      {-59.9s, "59 seconds ago"},
        {-119s, "1 minute ago"},     {-3599s, "59 minutes ago"}, {-2h, "2 hours ago"},
        {-25h, "1 day ago"},         {-13 * 24h, "1 week ago"},  {-45 * 24h, "1 month ago"},
        {-800 * 24h, "2 years ago"}, {90s, "in 1 minute"},
    };
    for (const auto& [offset, text] : cases)
        EXPECT_EQ(relativeTime.describe(now + offset, now), text) << offset.count();
}

} // namespace
} // namespace norrow
