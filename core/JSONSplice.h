#pragma once

#include <cstddef>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace norrow {

// Edits one member of a JSON object, or one element of an array, held as text, and keeps
// every other character exactly as it was. Not a parser: it scans only deep enough to find
// where the members on the way begin and end. Positions count user-perceived characters
// from 0.
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

// One step from a container to what it holds: a member's key (plain, unescaped text) or an
// element's index.
using Step = std::variant<std::string_view, std::size_t>;
// The steps from the top-level object down to a member or element, as {"hooks", "Stop", 0}.
using Path = std::vector<Step>;

class SpliceError : public std::runtime_error {
public:
    enum class Case { malformed, notAnObject, noContainer };

    static SpliceError malformed(const std::string& detail);
    static SpliceError notAnObject();
    static SpliceError noContainer();

    Case kind() const { return kind_; }

private:
    SpliceError(Case kind, const std::string& description);
    Case kind_;
};

// The member or element at `path`, or none when a step finds nothing. A key names the first
// member so called (compared after unescaping).
std::optional<Member> find(const Path& path, std::string_view document);

// The document with the value at `path` replaced by `value` (ready-rendered JSON, inserted
// verbatim), or, when the path's last step finds nothing, with the member (or, for an index,
// the element) added after the container's last one. New lines take the container's own
// indentation, else its line's indentation and one `indent`.
std::string set(const Path& path, std::string_view value, std::string_view document,
                std::string_view indent);

// The document without the member or element and one separator; unchanged when it is
// absent.
std::string remove(const Path& path, std::string_view document);

} // namespace JSONSplice
} // namespace norrow
