#include "core/MarkdownStripper.h"

#include "core/Graphemes.h"
#include "core/Unicode.h"

#include <limits>
#include <optional>
#include <unordered_map>
#include <utility>

namespace norrow::MarkdownStripper {
namespace {

using Pattern = Regexes::Name;

struct Entity {
    std::u16string_view key;
    std::u16string_view value;
};

// Decoded in this order, so "&amp;lt;" ends as "<".
constexpr Entity kEntities[] = {
    {u"&amp;", u"&"},        {u"&lt;", u"<"},          {u"&gt;", u">"},   {u"&quot;", u"\""},
    {u"&#39;", u"'"},        {u"&apos;", u"'"},        {u"&nbsp;", u" "}, {u"&mdash;", u"\u2014"},
    {u"&ndash;", u"\u2013"}, {u"&hellip;", u"\u2026"},
};

// A lifted code span is held as U+E000, its index, U+E001. The message's own U+E000 and
// U+E001 are dropped from blocks and before lifting, so that none can be taken for a
// placeholder or reach the output.
constexpr char16_t kSpanOpen = 0xE000;
constexpr char16_t kSpanClose = 0xE001;
// Their UTF-8 forms: 0xEE 0x80 0x80 and 0xEE 0x80 0x81.
constexpr char kReservedLead = '\xEE';

bool isReservedAt(std::string_view text, std::size_t i) {
    return text.substr(i, 2) == "\xEE\x80" && i + 2 < text.size() &&
           (text[i + 2] == '\x80' || text[i + 2] == '\x81');
}

std::string withoutReserved(std::string_view text) {
    if (text.find(kReservedLead) == std::string_view::npos) return std::string(text);
    std::string out;
    out.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (isReservedAt(text, i))
            i += 2;
        else
            out += text[i];
    }
    return out;
}

// The characters whose presence lets an inline-cleaning step have any effect, noted in one
// pass before anything changes.
struct Triggers {
    bool ampersand = false;
    bool star = false;
    bool angle = false;
    bool bracket = false;
    bool underscore = false;
    bool backtick = false;
    bool tilde = false;
    bool url = false;

    bool anyPattern() const {
        return ampersand || star || url || angle || bracket || underscore || tilde;
    }
};

Triggers scan(std::string_view text) {
    Triggers seen;
    for (const char c : text) {
        switch (c) {
        case '&':
            seen.ampersand = true;
            break;
        case '*':
            seen.star = true;
            break;
        case '/':
            seen.url = true;
            break;
        case '<':
        case '>':
            seen.angle = true;
            break;
        case '[':
        case ']':
            seen.bracket = true;
            break;
        case '_':
            seen.underscore = true;
            break;
        case '`':
            seen.backtick = true;
            break;
        case '~':
            seen.tilde = true;
            break;
        default:
            break;
        }
    }
    // Without any "/", only a case-exact "www." or "WWW." lets a text reach the URL step.
    seen.url = seen.url || text.find("www.") != std::string_view::npos ||
               text.find("WWW.") != std::string_view::npos;
    return seen;
}

icu::UnicodeString utf16(std::string_view text) {
    return icu::UnicodeString::fromUTF8(
        icu::StringPiece(text.data(), static_cast<int32_t>(text.size())));
}

std::string utf8(const icu::UnicodeString& text) {
    std::string out;
    text.toUTF8String(out);
    return out;
}

std::u16string_view view(const icu::UnicodeString& text) {
    return {text.getBuffer(), static_cast<std::size_t>(text.length())};
}

// Every occurrence of `key`, taken left to right without overlap, replaced by `value`.
icu::UnicodeString replacingOccurrences(const icu::UnicodeString& text, std::u16string_view key,
                                        std::u16string_view value) {
    const std::u16string_view all = view(text);
    std::size_t at = all.find(key);
    if (at == std::u16string_view::npos) return text;
    icu::UnicodeString out;
    std::size_t copied = 0;
    for (; at != std::u16string_view::npos; at = all.find(key, copied)) {
        out.append(all.data(), static_cast<int32_t>(copied), static_cast<int32_t>(at - copied));
        out.append(value.data(), 0, static_cast<int32_t>(value.size()));
        copied = at + key.size();
    }
    out.append(all.data(), static_cast<int32_t>(copied), static_cast<int32_t>(all.size() - copied));
    return out;
}

// Characters [from, to) of a Graphemes view.
struct Range {
    std::size_t from = 0;
    std::size_t to = 0;
    bool empty() const { return from >= to; }
    std::size_t size() const { return to - from; }
};
struct Fence {
    char marker = '`';
    std::size_t length = 0;
};

Range trimmedWhitespace(const Graphemes& g, Range range) {
    while (!range.empty() && g.isWhitespace(range.from))
        ++range.from;
    while (!range.empty() && g.isWhitespace(range.to - 1))
        --range.to;
    return range;
}

std::optional<Fence> fenceRun(const Graphemes& g, Range line) {
    if (line.empty()) return std::nullopt;
    Fence fence;
    if (g.is(line.from, '`'))
        fence.marker = '`';
    else if (g.is(line.from, '~'))
        fence.marker = '~';
    else
        return std::nullopt;
    std::size_t end = line.from;
    while (end < line.to && g.is(end, fence.marker))
        ++end;
    fence.length = end - line.from;
    if (fence.length < 3) return std::nullopt;
    if (fence.marker == '`') {
        for (std::size_t i = end; i < line.to; ++i)
            if (g.is(i, '`')) return std::nullopt;
    }
    return fence;
}

bool isHorizontalRule(const Graphemes& g, Range line) {
    if (line.size() < 3) return false;
    const std::string_view first = g[line.from];
    if (first != "-" && first != "*" && first != "_") return false;
    for (std::size_t i = line.from; i < line.to; ++i)
        if (g[i] != first && !g.is(i, ' ')) return false;
    return true;
}

bool isTableDelimiter(const Graphemes& g, Range line) {
    bool bar = false;
    for (std::size_t i = line.from; i < line.to; ++i) {
        bar = bar || g.is(i, '|');
        if (!g.is(i, '|') && !g.is(i, '-') && !g.is(i, ':') && !g.is(i, ' ')) return false;
    }
    return bar;
}

Range stripBlockquoteMarkers(const Graphemes& g, Range line) {
    while (!line.empty() && g.is(line.from, '>')) {
        ++line.from;
        while (!line.empty() && g.is(line.from, ' '))
            ++line.from;
    }
    return line;
}

std::optional<Range> strippedHeading(const Graphemes& g, Range line) {
    std::size_t end = line.from;
    while (end < line.to && g.is(end, '#'))
        ++end;
    const std::size_t level = end - line.from;
    if (level == 0 || level > 6) return std::nullopt;
    if (end < line.to && !g.is(end, ' ') && !g.is(end, '\t')) return std::nullopt;
    Range rest = trimmedWhitespace(g, {end, line.to});
    while (!rest.empty() && g.is(rest.to - 1, '#'))
        --rest.to;
    return trimmedWhitespace(g, rest);
}

std::optional<Range> strippedListItem(const Graphemes& g, Range line) {
    if (line.empty()) return std::nullopt;
    std::size_t after = line.from + 1;
    if (!g.is(line.from, '-') && !g.is(line.from, '*') && !g.is(line.from, '+') &&
        !g.is(line.from, "\u2022")) {
        std::size_t end = line.from;
        while (end < line.to && g.isNumber(end))
            ++end;
        const std::size_t digits = end - line.from;
        if (digits == 0 || digits > 9 || end == line.to || (!g.is(end, '.') && !g.is(end, ')')))
            return std::nullopt;
        after = end + 1;
    }
    if (after < line.to && !g.is(after, ' ') && !g.is(after, '\t')) return std::nullopt;
    const Range rest = trimmedWhitespace(g, {after, line.to});
    // A task checkbox: "[]", "[ ]" or "[x]".
    if (!rest.empty() && g.is(rest.from, '[')) {
        for (std::size_t close = rest.from + 1; close < rest.to && close <= rest.from + 2; ++close)
            if (g.is(close, ']')) return trimmedWhitespace(g, {close + 1, rest.to});
    }
    return rest;
}

bool isWhitespaceCharacter(std::string_view character) {
    std::size_t length = 0;
    return unicode::isWhitespace(unicode::decode(character, 0, length));
}

std::string liftCodeSpans(std::string_view text, std::vector<std::string>& spans) {
    // The runs of backtick characters, as byte ranges (a backtick is one byte).
    struct Run {
        std::size_t from;
        std::size_t to;
        std::size_t length() const { return to - from; }
    };
    std::vector<Run> runs;
    for (std::size_t at = 0; at < text.size(); ++at) {
        if (text[at] != '`' || !Graphemes::isOwnCharacter(text, at)) continue;
        if (runs.empty() || runs.back().to != at) runs.push_back({at, at});
        runs.back().to = at + 1;
    }

    // The run that closes each run: the next one of the same length. Found for all runs in
    // one backward pass, so many unmatched runs of different lengths stay linear.
    constexpr std::size_t none = std::numeric_limits<std::size_t>::max();
    std::vector<std::size_t> closer(runs.size(), none);
    std::unordered_map<std::size_t, std::size_t> nextOfLength;
    for (std::size_t r = runs.size(); r-- > 0;) {
        if (const auto found = nextOfLength.find(runs[r].length()); found != nextOfLength.end())
            closer[r] = found->second;
        nextOfLength[runs[r].length()] = r;
    }

    std::string out;
    out.reserve(text.size());
    std::size_t copied = 0;
    for (std::size_t r = 0; r < runs.size();) {
        out += text.substr(copied, runs[r].from - copied);
        if (closer[r] == none) {
            // An opening run without a closing one is dropped.
            copied = runs[r].to;
            ++r;
            continue;
        }
        const Run& close = runs[closer[r]];
        unicode::append(out, kSpanOpen);
        out += std::to_string(spans.size());
        unicode::append(out, kSpanClose);
        spans.emplace_back(text.substr(runs[r].to, close.from - runs[r].to));
        copied = close.to;
        r = closer[r] + 1;
    }
    out += text.substr(copied);
    return out;
}

icu::UnicodeString sanitizeCodeSpan(std::string_view content) {
    icu::UnicodeString code = utf16(content);
    if (content.find("://") != std::string_view::npos ||
        content.find("www.") != std::string_view::npos)
        code = Regexes::replaceAll(Pattern::rawURL, code);
    code = replacingOccurrences(code, u"__", u"");
    icu::UnicodeString out;
    for (const char16_t c : view(code)) {
        if (c != u'`' && c != u'*' && c != u'<' && c != u'>' && c != u'|') out.append(c);
    }
    return out;
}

// Every placeholder left is one that liftCodeSpans made (no pattern splits one, as none holds
// white space or markup); anything else that looks like a piece of one is dropped.
icu::UnicodeString restoreCodeSpans(const icu::UnicodeString& text,
                                    const std::vector<std::string>& spans) {
    const std::u16string_view all = view(text);
    icu::UnicodeString out;
    std::size_t copied = 0;
    for (std::size_t at = all.find_first_of(u"\uE000\uE001"); at != std::u16string_view::npos;
         at = all.find_first_of(u"\uE000\uE001", copied)) {
        out.append(all.data(), static_cast<int32_t>(copied), static_cast<int32_t>(at - copied));
        std::size_t end = at + 1;
        std::size_t index = 0;
        while (all[at] == kSpanOpen && end < all.size() && all[end] >= u'0' && all[end] <= u'9' &&
               index < spans.size()) {
            index = index * 10 + static_cast<std::size_t>(all[end] - u'0');
            ++end;
        }
        if (end > at + 1 && end < all.size() && all[end] == kSpanClose && index < spans.size()) {
            out.append(sanitizeCodeSpan(spans[index]));
            ++end;
        }
        copied = end;
    }
    out.append(all.data(), static_cast<int32_t>(copied), static_cast<int32_t>(all.size() - copied));
    return out;
}

std::string collapseWhitespace(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    constexpr std::size_t none = std::string_view::npos;
    std::size_t at = 0;
    std::size_t word = none;
    const auto endWord = [&](std::size_t end) {
        if (word == none) return;
        if (!out.empty()) out += ' ';
        out += text.substr(word, end - word);
        word = none;
    };
    Graphemes::forEach(text, [&](std::string_view character) {
        if (isWhitespaceCharacter(character))
            endWord(at);
        else if (word == none)
            word = at;
        at += character.size();
        return true;
    });
    endWord(text.size());
    return out;
}

std::string_view stripLeadingOrnaments(std::string_view text) {
    std::size_t at = 0;
    Graphemes::forEach(text, [&](std::string_view character) {
        if (!isWhitespaceCharacter(character) && !isOrnament(character)) return false;
        at += character.size();
        return true;
    });
    return text.substr(at);
}

} // namespace

std::string strip(std::string_view text) {
    std::string out;
    for (const std::string& block : rawBlocks(text)) {
        const std::string cleaned = inlineText(block);
        if (cleaned.empty()) continue;
        if (!out.empty()) out += "\n\n";
        out += cleaned;
    }
    return out;
}

std::vector<std::string> rawBlocks(std::string_view message) {
    std::vector<std::string> blocks;
    if (message.empty()) return blocks;
    const std::string text = withoutReserved(message);
    const Graphemes g(text);

    // Every piece added is trimmed of white space already, so the paragraph never has spaces
    // or tabs at its ends.
    std::string paragraph;
    const auto flush = [&] {
        if (!paragraph.empty()) blocks.push_back(std::move(paragraph));
        paragraph.clear();
    };
    std::optional<Fence> fence;
    bool afterHeading = false;

    std::size_t lineStart = 0;
    for (std::size_t end = 0; end <= g.size(); ++end) {
        // A CR LF pair is one character that is not a line feed, so it does not end a line.
        if (end < g.size() && !g.is(end, '\n')) continue;
        Range line{lineStart, end};
        lineStart = end + 1;
        if (!line.empty() && g.is(line.to - 1, '\r')) --line.to;
        line = trimmedWhitespace(g, line);

        const std::optional<Fence> run = fenceRun(g, line);
        if (fence) {
            if (run && run->marker == fence->marker && run->length >= fence->length) fence.reset();
            continue;
        }
        if (run) {
            flush();
            fence = run;
            continue;
        }
        if (line.empty() || isHorizontalRule(g, line)) {
            flush();
            afterHeading = false;
            continue;
        }
        if (g.is(line.from, '|') || isTableDelimiter(g, line)) {
            flush();
            continue;
        }

        Range content = stripBlockquoteMarkers(g, line);
        bool structural = afterHeading;
        bool heading = false;
        if (const auto headingText = strippedHeading(g, content)) {
            content = *headingText;
            structural = heading = true;
        } else if (const auto item = strippedListItem(g, content)) {
            content = *item;
            structural = true;
        }
        content = trimmedWhitespace(g, content);
        if (!content.empty()) {
            if (structural) flush();
            if (!paragraph.empty()) paragraph += ' ';
            paragraph += g.slice(content.from, content.to);
        } else if (structural) {
            flush();
        }
        afterHeading = heading;
    }
    flush();
    return blocks;
}

std::string inlineText(std::string_view block) {
    if (block.empty()) return {};
    const Triggers seen = scan(block);
    std::vector<std::string> spans;
    std::string cleaned = withoutReserved(block);
    if (seen.backtick) cleaned = liftCodeSpans(cleaned, spans);

    if (seen.anyPattern() || !spans.empty()) {
        icu::UnicodeString text = utf16(cleaned);
        const auto apply = [&text](Pattern name) { text = Regexes::replaceAll(name, text); };
        if (seen.angle) {
            apply(Pattern::htmlComment);
            apply(Pattern::autolink);
            apply(Pattern::htmlTag);
        }
        if (seen.bracket) {
            apply(Pattern::image);
            apply(Pattern::link);
            apply(Pattern::referenceLink);
        }
        if (seen.url) apply(Pattern::rawURL);
        if (seen.tilde) {
            apply(Pattern::strikethrough);
            text = replacingOccurrences(text, u"~~", u"");
        }
        if (seen.star) {
            apply(Pattern::starEmphasis);
            text = replacingOccurrences(text, u"*", u"");
        }
        if (seen.underscore) {
            apply(Pattern::underscoreEmphasis);
            text = replacingOccurrences(text, u"__", u"");
        }
        if (seen.ampersand) {
            for (const Entity& entity : kEntities)
                text = replacingOccurrences(text, entity.key, entity.value);
        }
        // Removed links and URLs can leave "()" or "[ ]" behind.
        if (seen.angle || seen.bracket) apply(Pattern::emptyBrackets);
        if (!spans.empty()) text = restoreCodeSpans(text, spans);
        cleaned = utf8(text);
    }
    return std::string(stripLeadingOrnaments(collapseWhitespace(cleaned)));
}

bool isOrnament(std::string_view character) {
    if (character.empty()) return false;
    if (character == "\u2014" || character == "\u2013" || character == "\u00B7" ||
        character == "\u2022" || character == ":")
        return true;
    std::size_t length = 0;
    const char32_t c = unicode::decode(character, 0, length);
    return unicode::isEmojiPresentation(c) || (c >= 0x238D && unicode::isEmoji(c)) ||
           (c >= 0x2190 && c <= 0x21FF) || (c >= 0x1F3FB && c <= 0x1F3FF) ||
           (c >= 0xFE00 && c <= 0xFE0F) || (c >= 0x2700 && c <= 0x27BF) || c == 0x200D;
}

} // namespace norrow::MarkdownStripper
