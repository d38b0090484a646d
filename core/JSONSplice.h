#pragma once

#include <cstddef>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

namespace norrow {

// Edits one top-level member of a JSON object held as text and keeps every other character
// exactly as it was. Not a parser: it scans only deep enough to find where top-level members
// begin and end. Positions count user-perceived characters from 0.
namespace JSONSplice {

// Characters [start, end).
struct Range {
    std::size_t start = 0;
    std::size_t end = 0;

    bool operator==(const Range&) const = default;
};

struct Member {
    // The value; a scalar's range runs on to the next ',', '}' or ']' and so includes the
    // whitespace that follows it.
    Range valueRange;
    // What to delete to remove the member together with one separating comma.
    Range memberRangeWithSeparator;

    bool operator==(const Member&) const = default;
};

class SpliceError : public std::runtime_error {
public:
    enum class Case { malformed, notAnObject };

    static SpliceError malformed(const std::string& detail);
    static SpliceError notAnObject();

    Case kind() const { return kind_; }

private:
    SpliceError(Case kind, const std::string& description);
    Case kind_;
};

// The first top-level member named `key` (compared after unescaping), or none.
std::optional<Member> find(std::string_view key, std::string_view document);

// The document with the member's value replaced by `value` (ready-rendered JSON, inserted
// verbatim), or with the member added after the last one. `indent` is used when the
// document's own indentation cannot be detected.
std::string set(std::string_view key, std::string_view value, std::string_view document,
                std::string_view indent);

// The document without the member and one separator; unchanged when the key is absent.
std::string remove(std::string_view key, std::string_view document);

} // namespace JSONSplice
} // namespace norrow
