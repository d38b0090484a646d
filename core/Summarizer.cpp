#include "core/Summarizer.h"

#include "core/Graphemes.h"
#include "core/MarkdownStripper.h"
#include "core/SentenceSplitter.h"
#include "core/TextWindow.h"
#include "core/Unicode.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <limits>
#include <utility>
#include <vector>

namespace norrow::Summarizer {
namespace {

constexpr std::array<std::string_view, 12> kDanglingPunctuation = {
    ",", ";", ":", "\u2014", "\u2013", "-", "(", "[", "{", "\u00B7", "/", "&"};
// Closing brackets and quotes that may follow a sentence's last punctuation.
constexpr std::array<std::string_view, 6> kClosers = {")", "]", "}", "\"", "\u201D", "\u00BB"};
// What a turn that ended in an error says, before the error's own words.
constexpr std::string_view kFailedTurn = "Turn failed";
constexpr std::array<std::string_view, 9> kPunctuation = {".", "!", "?",      "\u2026", ":",
                                                          ";", ",", "\u2014", "\u2013"};

// "1 tool", "3 files".
std::string counted(std::int64_t count, std::string_view noun) {
    std::string text = std::to_string(count) + " " + std::string(noun);
    if (count != 1) text += 's';
    return text;
}

std::string joined(const std::vector<std::string>& items, std::string_view separator) {
    std::string text;
    for (const std::string& item : items) {
        if (!text.empty()) text += separator;
        text += item;
    }
    return text;
}

// Whether a sentence may end before the text's end: a terminator followed, past more
// terminators and closing brackets or quotes, by white space. Any byte of a character beyond
// ASCII counts as maybe white space, and the last byte of "…" as maybe a terminator.
bool mayEndASentenceEarly(std::string_view text) {
    constexpr std::string_view terminators = ".!?\xA6";
    const auto isTerminatorOrCloser = [](char c) {
        return c == '.' || c == '!' || c == '?' || c == ')' || c == ']' || c == '}' || c == '"' ||
               c == '\'';
    };
    for (std::size_t i = text.find_first_of(terminators); i != std::string_view::npos;) {
        std::size_t k = i + 1;
        while (k < text.size() && isTerminatorOrCloser(text[k]))
            ++k;
        if (k == text.size()) return false;
        if (static_cast<unsigned char>(text[k]) >= 0x80 || unicode::isWhitespace(text[k]))
            return true;
        i = text.find_first_of(terminators, k);
    }
    return false;
}

// The first `wanted` sentences of a cleaned block (all when it has fewer). Of the sentences of
// a prefix, all but the last are final, so a long text is split only as far as needed; and a
// block where no sentence can end early is one sentence as it stands, for cleaning left no
// white space at its ends.
std::vector<std::string> firstSentences(std::string_view text, std::size_t wanted) {
    if (!mayEndASentenceEarly(text)) return {std::string(text)};
    for (std::size_t window = 1024;; window = textwindow::grown(window, text.size())) {
        const std::string_view front = textwindow::prefix(text, window);
        std::vector<std::string> found = SentenceSplitter::sentences(front);
        if (found.size() > wanted || front.size() == text.size()) {
            if (found.size() > wanted) found.resize(wanted);
            return found;
        }
    }
}

// The message's raw blocks, each cleaned of inline Markdown at most once.
class CleanedBlocks {
public:
    explicit CleanedBlocks(std::vector<std::string> blocks)
        : blocks_(std::move(blocks)), cleaned_(blocks_.size()) {}

    std::size_t size() const { return blocks_.size(); }
    const std::string& operator[](std::size_t i) {
        if (!cleaned_[i]) cleaned_[i] = MarkdownStripper::inlineText(blocks_[i]);
        return *cleaned_[i];
    }

private:
    std::vector<std::string> blocks_;
    std::vector<std::optional<std::string>> cleaned_;
};

// How many characters remain once trailing white space, ornaments and closing brackets
// and quotes are trimmed.
std::size_t trimmedForTerminator(const Graphemes& characters) {
    std::size_t end = characters.size();
    while (end > 0 &&
           (characters.isWhitespace(end - 1) || MarkdownStripper::isOrnament(characters[end - 1]) ||
            isOneOf(kClosers, characters[end - 1])))
        --end;
    return end;
}

bool endsWithPunctuation(std::string_view text) {
    const Graphemes g(text);
    std::size_t end = g.size();
    while (end > 0 && (g.isWhitespace(end - 1) || isOneOf(kClosers, g[end - 1])))
        --end;
    return end > 0 && isOneOf(kPunctuation, g[end - 1]);
}

// Only the end matters, so a growing suffix is segmented rather than the whole text. A suffix
// may come out far longer than asked for (no clean cut inside one long character), so the next
// one grows from what it was.
bool asksAQuestion(std::string_view text) {
    for (std::size_t window = 256;;) {
        const std::string_view tail = textwindow::suffix(text, window);
        const Graphemes g(tail);
        const std::size_t length = trimmedForTerminator(g);
        if (length > 0 || tail.size() == text.size()) return length > 0 && g.is(length - 1, '?');
        window = textwindow::grown(tail.size(), text.size());
    }
}

bool endsOnAQuestion(CleanedBlocks& blocks) {
    for (std::size_t i = blocks.size(); i-- > 0;) {
        const std::string& cleaned = blocks[i];
        if (!cleaned.empty()) return asksAQuestion(cleaned);
    }
    return false;
}

std::vector<std::string> openingSentences(CleanedBlocks& blocks) {
    std::vector<std::string> opening;
    for (std::size_t i = 0; i < blocks.size(); ++i) {
        const std::string& cleaned = blocks[i];
        if (cleaned.empty()) continue;
        for (std::string& sentence : firstSentences(cleaned, 2 - opening.size()))
            opening.push_back(std::move(sentence));
        if (opening.size() >= 2) break;
    }
    return opening;
}

SummaryKind classify(const HookEvent& event, CleanedBlocks& blocks,
                     const std::vector<std::string>& opening) {
    // A turn cut short by an error waits on the user to retry it.
    if (event.hookEventName == HookEvent::Name::stopFailure) return SummaryKind::needsYou;
    if (event.hookEventName == HookEvent::Name::notification) {
        using Type = HookEvent::NotificationType;
        const auto type = event.notificationType;
        if (type == Type::agentNeedsInput) return SummaryKind::needsYou;
        if (type == Type::agentCompleted || type == Type::authSuccess) return SummaryKind::done;
        return SummaryKind::waiting;
    }
    // A message that opens or closes with a question asks for the user.
    if (!opening.empty() && asksAQuestion(opening.front())) return SummaryKind::needsYou;
    return endsOnAQuestion(blocks) ? SummaryKind::needsYou : SummaryKind::done;
}

std::string assembleLead(const std::vector<std::string>& opening) {
    if (opening.empty()) return {};
    const std::string& first = opening.front();
    if (opening.size() == 1 ||
        Graphemes(first, shortSentenceThreshold).size() >= shortSentenceThreshold)
        return first;
    return first + (endsWithPunctuation(first) ? " " : " \u2014 ") + opening[1];
}

std::string fallbackText(SummaryKind kind, std::optional<std::int64_t> toolCount) {
    std::string text(label(kind));
    if (toolCount && *toolCount >= 1) text += " \u00B7 " + counted(*toolCount, "tool");
    return text;
}

// The lead, cut to length, or the kind's fallback without one. The last message of a failed
// turn is the error the client reported, which follows "Turn failed".
std::string bannerText(const HookEvent& event, SummaryKind kind, const std::string& lead) {
    if (event.hookEventName == HookEvent::Name::stopFailure)
        return lead.empty() ? std::string(kFailedTurn)
                            : truncate(std::string(kFailedTurn) + ": " + lead, maxLength);
    if (lead.empty())
        return fallbackText(kind, event.stats ? event.stats->toolCount : std::nullopt);
    return truncate(lead, maxLength);
}

} // namespace

Summary summarize(const HookEvent& event, std::optional<Seconds> duration) {
    const std::string_view source = event.lastAssistantMessage
                                        ? std::string_view(*event.lastAssistantMessage)
                                    : event.message ? std::string_view(*event.message)
                                                    : std::string_view();
    CleanedBlocks blocks(MarkdownStripper::rawBlocks(source));
    const std::vector<std::string> opening = openingSentences(blocks);
    Summary summary;
    summary.kind = classify(event, blocks, opening);
    const std::string lead = assembleLead(opening);
    summary.usedFallback = lead.empty();
    summary.text = bannerText(event, summary.kind, lead);
    summary.statLine = statLine(event.stats);
    summary.durationText = durationText(duration);
    return summary;
}

Summary summarize(std::string_view text) {
    HookEvent event(HookEvent::Name::userPromptSubmit);
    event.lastAssistantMessage = std::string(text);
    return summarize(event, std::nullopt);
}

std::string leadSentence(std::string_view markdown) {
    CleanedBlocks blocks(MarkdownStripper::rawBlocks(markdown));
    return assembleLead(openingSentences(blocks));
}

std::optional<std::string> statLine(const std::optional<HookEvent::Stats>& stats) {
    if (!stats) return std::nullopt;
    std::vector<std::string> items;
    if (stats->toolCount) items.push_back(counted(*stats->toolCount, "tool"));
    if (stats->filesTouched) items.push_back(counted(*stats->filesTouched, "file"));
    std::vector<std::string> lines;
    if (stats->linesAdded) lines.push_back("+" + std::to_string(*stats->linesAdded));
    if (stats->linesRemoved) lines.push_back("\u2212" + std::to_string(*stats->linesRemoved));
    if (!lines.empty()) items.push_back(joined(lines, " "));
    if (items.empty()) return std::nullopt;
    return joined(items, " \u00B7 ");
}

std::optional<std::string> durationText(std::optional<Seconds> duration) {
    if (!duration) return std::nullopt;
    const double seconds = duration->count();
    if (!std::isfinite(seconds) || seconds < 0) return std::nullopt;
    const double rounded = std::round(seconds);
    // A count of seconds that no integer holds is not a usable duration either.
    if (rounded >= static_cast<double>(std::numeric_limits<std::int64_t>::max()))
        return std::nullopt;
    const auto s = static_cast<std::int64_t>(rounded);
    if (s < 60) return std::to_string(s) + "s";
    if (s < 3600) {
        const std::string minutes = std::to_string(s / 60) + "m";
        return s % 60 == 0 ? minutes : minutes + " " + std::to_string(s % 60) + "s";
    }
    const std::string hours = std::to_string(s / 3600) + "h";
    const std::int64_t minutes = s % 3600 / 60;
    return minutes == 0 ? hours : hours + " " + std::to_string(minutes) + "m";
}

std::string truncate(std::string_view text, int limit) {
    const std::size_t cap = static_cast<std::size_t>(std::max(limit, 0));
    // One character past the limit tells whether anything must be cut.
    const Graphemes g(text, cap + 1);
    if (limit < 2) return std::string(g.slice(0, std::min(g.size(), cap)));
    if (g.size() <= cap) return std::string(text);

    // Keep at most limit - 1 characters, so the ellipsis still fits.
    const std::size_t cut = cap - 1;
    const auto lastBefore = [&](auto isBreak) -> std::optional<std::size_t> {
        for (std::size_t i = cut; i >= 1; --i)
            if (isBreak(i)) return i;
        return std::nullopt;
    };
    std::optional<std::size_t> boundary =
        lastBefore([&](std::size_t i) { return g.isWhitespace(i); });
    if (!boundary)
        boundary = lastBefore([&](std::size_t i) { return !g.isLetter(i) && !g.isNumber(i); });
    std::size_t end = boundary.value_or(cut);
    while (end > 0 && (g.isWhitespace(end - 1) || isOneOf(kDanglingPunctuation, g[end - 1])))
        --end;
    if (end == 0) end = cut;
    return std::string(g.slice(0, end)) + "\u2026";
}

} // namespace norrow::Summarizer
