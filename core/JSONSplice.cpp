#include "core/JSONSplice.h"

#include "core/Graphemes.h"

#include <span>
#include <tuple>
#include <utility>

namespace norrow::JSONSplice {
namespace {

using Steps = std::span<const Step>;

// A member or element met while walking its container.
struct Item {
    // Where its key, or the element itself, starts.
    std::size_t start = 0;
    Range value;
    bool first = false;
};

// Walks a document one user-perceived character at a time.
class Scanner {
public:
    explicit Scanner(std::string_view text) : chars_(text), size_(chars_.size()) {}

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

    std::optional<Member> find(Steps path) const {
        rejectNul();
        if (path.empty()) return std::nullopt;
        const auto open = container(path.first(path.size() - 1));
        if (!open) return std::nullopt;
        const auto item = at(*open, path.back());
        if (!item) return std::nullopt;
        return Member{item->value, separatorRange(*open, *item)};
    }

    // The opening bracket of the object or array that `path` leads to from the top-level
    // object; none when a step finds nothing or finds something else.
    std::optional<std::size_t> container(Steps path) const {
        std::size_t open = openingBrace();
        for (const Step& step : path) {
            const auto item = at(open, step);
            if (!item || !(is(item->value.start, '{') || is(item->value.start, '[')))
                return std::nullopt;
            open = item->value.start;
        }
        return open;
    }

    // The text with `text` added after the last member or element of the container opening
    // at `open`, on a line of its own. `outer` is the container's own indentation.
    std::string inserted(std::size_t open, const std::string& text, const std::string& outer,
                         std::string_view unit) const {
        const std::size_t first = skipSpace(open + 1);
        if (is(first, closing(open)))
            return replaced({open + 1, first},
                            "\n" + outer + std::string(unit) + text + "\n" + outer);
        std::optional<std::size_t> end;
        walk(open, [&end](const Step&, const Item& item) {
            end = item.value.end;
            return false;
        });
        if (!end) throw SpliceError::malformed("could not find the end of the last member");
        return replaced({*end, *end},
                        ",\n" + indentation(open + 1).value_or(outer + std::string(unit)) + text);
    }

    // The text with the characters of `range` replaced by `replacement`.
    std::string replaced(Range range, std::string_view replacement) const {
        std::string out(chars_.slice(0, range.start));
        out += replacement;
        out += chars_.slice(range.end, size_);
        return out;
    }

    // The spaces and tabs that start the line holding `at`.
    std::string lineIndentation(std::size_t at) const {
        std::size_t start = at;
        while (start > 0 && !is(start - 1, '\n') && !is(start - 1, '\r') &&
               !chars_.is(start - 1, "\r\n"))
            --start;
        std::size_t end = start;
        while (is(end, ' ') || is(end, '\t'))
            ++end;
        return std::string(chars_.slice(start, end));
    }

private:
    char closing(std::size_t open) const { return is(open, '{') ? '}' : ']'; }

    // The member or element of the container opening at `open` that `step` names.
    std::optional<Item> at(std::size_t open, const Step& step) const {
        return walk(open, [&step](const Step& here, const Item&) { return here == step; });
    }

    // Walks the members (or elements) of the container opening at `open` until `stop` is
    // true for one's key (or index) and place; that one, or none.
    template <typename Stop> std::optional<Item> walk(std::size_t open, Stop stop) const {
        const bool object = is(open, '{');
        std::size_t p = open + 1;
        std::size_t index = 0;
        bool first = true;
        for (;;) {
            p = skipSpace(p);
            if (p == size_) throw SpliceError::malformed("unterminated object");
            if (is(p, closing(open))) return std::nullopt;
            if (is(p, ',')) {
                ++p;
                first = false;
                continue;
            }
            const std::size_t start = p;
            std::string key;
            if (object) {
                if (!is(p, '"'))
                    throw SpliceError::malformed("expected a key at " + std::to_string(p));
                std::tie(key, p) = scanString(p);
                p = skipSpace(p);
                if (!is(p, ':')) throw SpliceError::malformed("expected ':' after key " + key);
                p = skipSpace(p + 1);
                if (p == size_) throw SpliceError::malformed("expected a value after key " + key);
            }
            const Item item{start, {p, scanValue(p)}, first};
            // A bracket that closes something else; stepping over nothing would never end.
            if (item.value.end == p && !object)
                throw SpliceError::malformed("expected a value at " + std::to_string(p));
            if (stop(object ? Step(key) : Step(index++), item)) return item;
            p = item.value.end;
            first = false;
        }
    }

    // A string starting at the quote at `i`: its unescaped text and the position after it.
    std::pair<std::string, std::size_t> scanString(std::size_t i) const {
        bool escaped = false;
        for (std::size_t p = i + 1; p < size_; ++p) {
            if (is(p, '\\')) {
                escaped = true;
                ++p;
            } else if (is(p, '"')) {
                return {escaped ? unescape(i + 1, p) : std::string(chars_.slice(i + 1, p)), p + 1};
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

    // No JSON text holds a NUL, and the parsers that check the result stop reading at one.
    void rejectNul() const {
        if (chars_.text().find('\0') == std::string_view::npos) return;
        for (std::size_t p = 0; p < size_; ++p)
            if (is(p, '\0')) throw SpliceError::malformed("NUL character at " + std::to_string(p));
    }

    std::string unescape(std::size_t from, std::size_t to) const {
        std::string out;
        for (std::size_t p = from; p < to; ++p) {
            if (!is(p, '\\')) {
                out += chars_[p];
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
                out += chars_[p];
        }
        return out;
    }

    // The spaces and tabs that start the first line after `from`, when there are any.
    std::optional<std::string> indentation(std::size_t from) const {
        std::string collected;
        for (std::size_t p = from; p < size_; ++p) {
            if (is(p, '\n') || is(p, '\r'))
                collected.clear();
            else if (is(p, ' ') || is(p, '\t'))
                collected += chars_[p];
            else
                return collected.empty() ? std::nullopt : std::optional(collected);
        }
        return std::nullopt;
    }

    // What to delete with `item` so that its container stays valid: the comma after it, else
    // the comma before it.
    Range separatorRange(std::size_t open, const Item& item) const {
        const std::size_t valueEnd = item.value.end;
        const std::size_t next = skipSpace(valueEnd);
        if (is(next, ',')) return {item.start, next + 1};
        if (item.first) {
            // Keep one whitespace character, normally the line break, before the bracket.
            if (!isSpace(valueEnd)) return {open + 1, valueEnd};
            return {open + 1, is(next, closing(open)) ? next - 1 : next};
        }
        std::size_t p = item.start;
        while (p > open + 1 && isSpace(p - 1))
            --p;
        if (p > open + 1 && is(p - 1, ',')) return {p - 1, valueEnd};
        return {item.start, valueEnd};
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

SpliceError SpliceError::noContainer() {
    return SpliceError(Case::noContainer,
                       "the path does not lead to an object or array to hold the member");
}

std::optional<Member> find(const Path& path, std::string_view document) {
    return Scanner(document).find(path);
}

std::string set(const Path& path, std::string_view value, std::string_view document,
                std::string_view indent) {
    const Scanner scanner(document);
    const Steps all = path;
    if (const auto member = scanner.find(all)) return scanner.replaced(member->valueRange, value);
    const auto open = all.empty() ? std::nullopt : scanner.container(all.first(all.size() - 1));
    const auto* key = all.empty() ? nullptr : std::get_if<std::string_view>(&all.back());
    if (!open || scanner.is(*open, '{') != (key != nullptr)) throw SpliceError::noContainer();
    const std::string text = key != nullptr ? "\"" + std::string(*key) + "\": " + std::string(value)
                                            : std::string(value);
    // The top-level object's members take the fallback as it is.
    const std::string outer = all.size() > 1 ? scanner.lineIndentation(*open) : std::string();
    return scanner.inserted(*open, text, outer, indent);
}

std::string remove(const Path& path, std::string_view document) {
    const Scanner scanner(document);
    if (const auto member = scanner.find(path))
        return scanner.replaced(member->memberRangeWithSeparator, "");
    return std::string(document);
}

} // namespace norrow::JSONSplice
