#pragma once

#include "core/Seconds.h"

#include <chrono>
#include <memory>
#include <string>
#include <unicode/uversion.h>

U_NAMESPACE_BEGIN
class RelativeDateTimeFormatter;
U_NAMESPACE_END

namespace norrow {

// Spelled-out relative times in the user's language ("5 minutes ago", "in 2 hours"), in the
// largest whole unit that fits. Building the formatter is costly, so one instance serves
// many calls; not thread-safe.
class RelativeTime {
public:
    using Date = std::chrono::time_point<std::chrono::system_clock, Seconds>;

    // In the language of `locale` (an ICU locale name), else the user's.
    explicit RelativeTime(const char* locale = nullptr);
    ~RelativeTime();
    RelativeTime(const RelativeTime&) = delete;
    RelativeTime& operator=(const RelativeTime&) = delete;

    // `then` as seen from `now`.
    std::string describe(Date then, Date now) const;

private:
    std::unique_ptr<icu::RelativeDateTimeFormatter> formatter_;
};

} // namespace norrow
