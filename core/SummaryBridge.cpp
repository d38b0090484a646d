#include "core/SummaryBridge.h"

#include "core/RequestText.h"
#include "core/Summarizer.h"

namespace norrow::SummaryBridge {

Result summarize(const HookEvent& event, std::optional<Seconds> duration) {
    // A request waits on the user's answer, in the words of what it asks.
    if (auto asked = RequestText::describe(event))
        return {std::move(*asked), SummaryKind::waiting, std::nullopt,
                Summarizer::durationText(duration)};
    if (event.hookEventName != HookEvent::Name::notification) {
        Summary summary = Summarizer::summarize(event, duration);
        return {std::move(summary.text), summary.kind, std::move(summary.statLine),
                std::move(summary.durationText)};
    }
    // A notification shows its message as sent; only a direct request for input counts as
    // needing the user, everything else waits.
    const bool needsInput = event.notificationType == HookEvent::NotificationType::agentNeedsInput;
    return {event.message.value_or("Waiting for you"),
            needsInput ? SummaryKind::needsYou : SummaryKind::waiting, std::nullopt,
            Summarizer::durationText(duration)};
}

} // namespace norrow::SummaryBridge
