#pragma once

#include "core/HookEvent.h"
#include "core/Summary.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace norrow {

class Graphemes;

// Builds a banner's Summary from a hook event: the opening sentence or two of the agent's last
// message as plain text, what kind of alert it is, and the turn's statistics and duration.
// Never fails: every path ends in some text.
class Summarizer {
public:
    // The cap of Summary::text, in characters.
    static constexpr int maxLength = 140;
    // A first sentence shorter than this gets the second one joined to it.
    static constexpr std::size_t shortSentenceThreshold = 40;

    // `duration` is the turn's length in seconds.
    static Summary summarize(const HookEvent& event, std::optional<double> duration);
    // The summary of a UserPromptSubmit event whose only other field is this last assistant
    // message, without a duration; for previews and checks.
    static Summary summarize(std::string_view text);
    // The untruncated lead that summarize builds its text from; "" when there is none.
    static std::string leadSentence(std::string_view markdown);
    // e.g. "3 tools · 2 files · +10 −4"; absent without stats or when they hold nothing shown.
    static std::optional<std::string> statLine(const std::optional<HookEvent::Stats>& stats);
    // e.g. "42s", "2m 5s", "1h 5m"; absent for a missing, negative or non-finite duration.
    static std::optional<std::string> durationText(std::optional<double> seconds);
    // At most `limit` characters: cut at a word boundary, without dangling punctuation, and
    // ending in "…" when anything was cut.
    static std::string truncate(std::string_view text, int limit);

private:
    // The message's raw blocks, each cleaned of inline Markdown at most once.
    class CleanedBlocks;

    static std::vector<std::string> openingSentences(CleanedBlocks& blocks);
    static SummaryKind classify(const HookEvent& event, CleanedBlocks& blocks,
                                const std::vector<std::string>& opening);
    static bool endsOnAQuestion(CleanedBlocks& blocks);
    static bool asksAQuestion(std::string_view text);
    static std::string assembleLead(const std::vector<std::string>& opening);
    static std::string fallbackText(SummaryKind kind, std::optional<std::int64_t> toolCount);
    // How many characters remain once trailing white space, ornaments and closing brackets
    // and quotes are trimmed.
    static std::size_t trimmedForTerminator(const Graphemes& characters);
    static bool endsWithPunctuation(std::string_view text);
};

} // namespace norrow
