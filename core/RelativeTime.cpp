#include "core/RelativeTime.h"

#include <array>
#include <cmath>
#include <unicode/reldatefmt.h>
#include <unicode/unistr.h>

namespace norrow {
namespace {

struct Unit {
    double seconds;
    URelativeDateTimeUnit unit;
};

// Largest first; a month and a year are their average lengths.
constexpr std::array<Unit, 7> units{{
    {365.2425 * 86400, UDAT_REL_UNIT_YEAR},
    {30.436875 * 86400, UDAT_REL_UNIT_MONTH},
    {7 * 86400, UDAT_REL_UNIT_WEEK},
    {86400, UDAT_REL_UNIT_DAY},
    {3600, UDAT_REL_UNIT_HOUR},
    {60, UDAT_REL_UNIT_MINUTE},
    {1, UDAT_REL_UNIT_SECOND},
}};

} // namespace

RelativeTime::RelativeTime(const char* locale) {
    UErrorCode status = U_ZERO_ERROR;
    auto formatter = std::make_unique<icu::RelativeDateTimeFormatter>(
        locale ? icu::Locale(locale) : icu::Locale::getDefault(), nullptr, UDAT_STYLE_LONG,
        UDISPCTX_CAPITALIZATION_NONE, status);
    if (U_SUCCESS(status)) formatter_ = std::move(formatter);
}

RelativeTime::~RelativeTime() = default;

std::string RelativeTime::describe(Date then, Date now) const {
    const double offset = (then - now).count();
    Unit chosen = units.back();
    for (const Unit& unit : units) {
        if (std::abs(offset) >= unit.seconds) {
            chosen = unit;
            break;
        }
    }
    // Whole units only, towards zero: 119 seconds ago is "1 minute ago".
    const double count = std::trunc(offset / chosen.seconds);
    std::string text;
    if (!formatter_) return text;
    UErrorCode status = U_ZERO_ERROR;
    icu::UnicodeString formatted;
    formatter_->formatNumeric(count == 0 ? 0.0 : count, chosen.unit, formatted, status);
    if (U_SUCCESS(status)) formatted.toUTF8String(text);
    return text;
}

} // namespace norrow
