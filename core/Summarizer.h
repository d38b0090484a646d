#pragma once

#include "core/HookEvent.h"
#include "core/Seconds.h"
#include "core/Summary.h"

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

// Builds a banner's Summary from a hook event: the opening sentence or two of the agent's last
// message as plain text, what kind of alert it is, and the turn's statistics and duration.
// Never fails: every path ends in some text.
namespace norrow::Summarizer {

// The cap of Summary::text, in characters.
inline constexpr int maxLength = 140;
// A first sentence shorter than this gets the second one joined to it.
inline constexpr std::size_t shortSentenceThreshold = 40;

// `duration` is the turn's length.
Summary summarize(const HookEvent& event, std::optional<Seconds> duration);
// The summary of a UserPromptSubmit event whose only other field is this last assistant
// message, without a duration; for previews and checks.
Summary summarize(std::string_view text);
// The untruncated lead that summarize builds its text from; "" when there is none.
std::string leadSentence(std::string_view markdown);
// e.g. "3 tools · 2 files · +10 −4"; absent without stats or when they hold nothing shown.
std::optional<std::string> statLine(const std::optional<HookEvent::Stats>& stats);
// e.g. "42s", "2m 5s", "1h 5m"; absent for a missing, negative or non-finite duration.
std::optional<std::string> durationText(std::optional<Seconds> duration);
// At most `limit` characters: cut at a word boundary, without dangling punctuation, and
// ending in "…" when anything was cut.
std::string truncate(std::string_view text, int limit);

} // namespace norrow::Summarizer
