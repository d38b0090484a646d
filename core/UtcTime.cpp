#include "core/UtcTime.h"

#include <cstdio>

namespace norrow {

std::string iso8601(std::chrono::sys_seconds instant) {
    using namespace std::chrono;
    const auto day = floor<days>(instant);
    const year_month_day date(day);
    const hh_mm_ss time(instant - day);
    char text[32];
    std::snprintf(text, sizeof text, "%04d-%02u-%02uT%02d:%02d:%02dZ",
                  static_cast<int>(date.year()), static_cast<unsigned>(date.month()),
                  static_cast<unsigned>(date.day()), static_cast<int>(time.hours().count()),
                  static_cast<int>(time.minutes().count()),
                  static_cast<int>(time.seconds().count()));
    return text;
}

} // namespace norrow
