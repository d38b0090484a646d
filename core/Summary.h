#pragma once

#include <array>
#include <optional>
#include <string>
#include <string_view>

namespace norrow {

// What a banner reports: a finished turn, a question for the user, or a wait on the user.
enum class SummaryKind { done, needsYou, waiting };

// "done", "needsYou", "waiting": the kind's encoded form.
std::string_view rawValue(SummaryKind kind);
// "Done", "Needs you", "Waiting".
std::string_view label(SummaryKind kind);
// The emoji shown with the kind.
std::string_view symbol(SummaryKind kind);

// A banner's content.
struct Summary {
    // The banner line, at most Summarizer::maxLength characters.
    std::string text;
    SummaryKind kind = SummaryKind::done;
    // e.g. "3 tools · 2 files · +10 −4"; absent without statistics.
    std::optional<std::string> statLine;
    // e.g. "2m 5s"; absent without a usable duration.
    std::optional<std::string> durationText;
    // True when no lead sentence could be made and `text` is the kind's fallback.
    bool usedFallback = false;

    bool operator==(const Summary&) const = default;
};

} // namespace norrow
