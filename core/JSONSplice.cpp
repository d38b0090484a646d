#include "core/JSONSplice.h"

#include "core/Graphemes.h"

#include <utility>

namespace norrow::JSONSplice {
namespace {

// Walks a document one user-perceived character at a time.
class Scanner {
public:
    explicit Scanner(std::string_view text) : chars_(text), size_(chars_.size()) {}

    std::size_t size() const { return size_; }
    std::string_view slice(std::size_t from, std::size_t to) const {
        return chars_.slice(from, to);
    }
    bool is(std::size_t i, char c) const { return i < size_ && chars_.is(i, c); }
    bool isSpace(std::size_t i) const { return i < size_ && chars_.isWhitespace(i); }
    std::size_t skipSpace(std::size_t i) const {
        while (isSpace(i))
            ++i;
        return i;
    }

    // The position of the document's opening brace; throws when there is none.
    std::size_t openingBrace() const {
        const std::size_t open = skipSpace(0);
        if (!is(open, '{')) throw SpliceError::notAnObject();
        return open;
    }

    // A string starting at the quote at `i`: its unescaped text and the position after it.
    std::pair<std::string, std::size_t> scanString(std::size_t i) const {
        bool escaped = false;
        for (std::size_t p = i + 1; p < size_; ++p) {
            if (is(p, '\\')) {
                escaped = true;
                ++p;
            } else if (is(p, '"')) {
                return {escaped ? unescape(i + 1, p) : std::string(slice(i + 1, p)), p + 1};
            }
        }
        throw SpliceError::malformed("unterminated string");
    }

    // Where the value starting at `i` ends: just after its closing bracket, or at the next
    // ',', '}' or ']' at depth 0, or at the end of the text.
    std::size_t scanValue(std::size_t i) const {
        int depth = 0;
        bool inString = false;
        for (std::size_t p = i; p < size_; ++p) {
            if (inString) {
                if (is(p, '\\'))
                    ++p;
                else if (is(p, '"'))
                    inString = false;
            } else if (is(p, '"')) {
                inString = true;
            } else if (is(p, '{') || is(p, '[')) {
                ++depth;
            } else if (is(p, '}') || is(p, ']')) {
                if (depth == 0) return p;
                if (depth == 1) return p + 1;
                --depth;
            } else if (depth == 0 && is(p, ',')) {
                return p;
            }
        }
        if (depth > 0 || inString) throw SpliceError::malformed("unterminated value");
        return size_;
    }

    std::optional<Member> find(std::string_view key) const {
        rejectNul();
        const std::size_t open = openingBrace();
        std::size_t p = open + 1;
        if (p == size_) throw SpliceError::malformed("unterminated object");
        bool first = true;
        for (;;) {
            p = skipSpace(p);
            if (p == size_) throw SpliceError::malformed("unterminated object");
            if (is(p, '}')) return std::nullopt;
            if (is(p, ',')) {
                ++p;
                first = false;
                continue;
            }
            if (!is(p, '"')) throw SpliceError::malformed("expected a key at " + std::to_string(p));
            const std::size_t keyStart = p;
            auto [name, afterKey] = scanString(p);
            p = skipSpace(afterKey);
            if (!is(p, ':')) throw SpliceError::malformed("expected ':' after key " + name);
            const std::size_t valueStart = skipSpace(p + 1);
            if (valueStart == size_)
                throw SpliceError::malformed("expected a value after key " + name);
            const std::size_t valueEnd = scanValue(valueStart);
            if (name == key)
                return Member{{valueStart, valueEnd},
                              separatorRange(open, keyStart, valueEnd, first)};
            p = valueEnd;
            first = false;
        }
    }

    // Where the object's last member ends, or none when the object is empty or unreadable.
    std::optional<std::size_t> lastMemberEnd() const {
        std::size_t p = skipSpace(0);
        if (!is(p, '{')) return std::nullopt;
        ++p;
        std::optional<std::size_t> end;
        try {
            for (;;) {
                while (isSpace(p) || is(p, ','))
                    ++p;
                if (is(p, '}')) return end;
                if (!is(p, '"')) return std::nullopt;
                p = skipSpace(scanString(p).second);
                if (!is(p, ':')) return std::nullopt;
                p = scanValue(skipSpace(p + 1));
                end = p;
            }
        } catch (const SpliceError&) {
            return std::nullopt;
        }
    }

    // The spaces and tabs that start the first line after `from`, when there are any.
    std::optional<std::string> indentation(std::size_t from) const {
        std::string collected;
        for (std::size_t p = from; p < size_; ++p) {
            if (is(p, '\n') || is(p, '\r'))
                collected.clear();
            else if (is(p, ' ') || is(p, '\t'))
                collected += slice(p, p + 1);
            else
                return collected.empty() ? std::nullopt : std::optional(collected);
        }
        return std::nullopt;
    }

    // The text with the characters of `range` replaced by `replacement`.
    std::string replaced(Range range, std::string_view replacement) const {
        std::string out(slice(0, range.start));
        out += replacement;
        out += slice(range.end, size_);
        return out;
    }

private:
    // No JSON text holds a NUL, and the parsers that check the result stop reading at one.
    void rejectNul() const {
        if (slice(0, size_).find('\0') == std::string_view::npos) return;
        for (std::size_t p = 0; p < size_; ++p)
            if (is(p, '\0')) throw SpliceError::malformed("NUL character at " + std::to_string(p));
    }

    std::string unescape(std::size_t from, std::size_t to) const {
        std::string out;
        for (std::size_t p = from; p < to; ++p) {
            if (!is(p, '\\')) {
                out += slice(p, p + 1);
                continue;
            }
            if (++p == to) break;
            if (is(p, 'n'))
                out += '\n';
            else if (is(p, 't'))
                out += '\t';
            else if (is(p, 'r'))
                out += '\r';
            else
                out += slice(p, p + 1);
        }
        return out;
    }

    // What to delete with the member from `keyStart` to `valueEnd` so that the object stays
    // valid: the comma after it, else the comma before it.
    Range separatorRange(std::size_t open, std::size_t keyStart, std::size_t valueEnd,
                         bool first) const {
        const std::size_t next = skipSpace(valueEnd);
        if (is(next, ',')) return {keyStart, next + 1};
        if (first) {
            // Keep one whitespace character, normally the line break, before the brace.
            if (!isSpace(valueEnd)) return {open + 1, valueEnd};
            return {open + 1, is(next, '}') ? next - 1 : next};
        }
        std::size_t p = keyStart;
        while (p > open + 1 && isSpace(p - 1))
            --p;
        if (p > open + 1 && is(p - 1, ',')) return {p - 1, valueEnd};
        return {keyStart, valueEnd};
    }

    Graphemes chars_;
    std::size_t size_;
};

} // namespace

SpliceError::SpliceError(Case kind, const std::string& description)
    : std::runtime_error(description), kind_(kind) {}

SpliceError SpliceError::malformed(const std::string& detail) {
    return SpliceError(Case::malformed, "malformed JSON: " + detail);
}

SpliceError SpliceError::notAnObject() {
    return SpliceError(Case::notAnObject, "the document's top level is not a JSON object");
}

std::optional<Member> find(std::string_view key, std::string_view document) {
    return Scanner(document).find(key);
}

std::string set(std::string_view key, std::string_view value, std::string_view document,
                std::string_view indent) {
    const Scanner scanner(document);
    if (const auto member = scanner.find(key)) return scanner.replaced(member->valueRange, value);

    const std::string memberText = "\"" + std::string(key) + "\": " + std::string(value);
    const std::size_t open = scanner.openingBrace();
    const std::size_t first = scanner.skipSpace(open + 1);
    if (scanner.is(first, '}'))
        return scanner.replaced({open + 1, first}, "\n" + std::string(indent) + memberText + "\n");
    const auto end = scanner.lastMemberEnd();
    if (!end) throw SpliceError::malformed("could not find the end of the last member");
    const std::string lineIndent = scanner.indentation(open + 1).value_or(std::string(indent));
    return scanner.replaced({*end, *end}, ",\n" + lineIndent + memberText);
}

std::string remove(std::string_view key, std::string_view document) {
    const Scanner scanner(document);
    if (const auto member = scanner.find(key))
        return scanner.replaced(member->memberRangeWithSeparator, "");
    return std::string(document);
}

} // namespace norrow::JSONSplice
