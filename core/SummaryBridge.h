#pragma once

#include "core/HookEvent.h"
#include "core/Seconds.h"
#include "core/Summary.h"

#include <optional>
#include <string>

// The one place event handling gets banner text from: the core summary for finished turns,
// the agent's own words for notifications, and what it asks for requests.
namespace norrow::SummaryBridge {

struct Result {
    std::string text;
    SummaryKind kind = SummaryKind::done;
    std::optional<std::string> statLine;
    std::optional<std::string> durationText;

    bool operator==(const Result&) const = default;
};

// `duration` is the turn's length.
Result summarize(const HookEvent& event, std::optional<Seconds> duration);

} // namespace norrow::SummaryBridge
