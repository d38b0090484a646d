#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace norrow {

class Graphemes;

// Cuts one plain-text paragraph into sentences, so a summary can lead with the first one or
// two. Never fails.
class SentenceSplitter {
public:
    // The sentences of `text` in order, each trimmed of spaces and tabs, none empty.
    static std::vector<std::string> sentences(std::string_view text);

private:
    // Whether the dot at `dotIndex` ends an abbreviation ("e.g.", "Dr.", "J.") rather than a
    // sentence.
    static bool isAbbreviation(const Graphemes& characters, std::size_t dotIndex);
};

} // namespace norrow
