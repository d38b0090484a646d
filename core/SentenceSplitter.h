#pragma once

#include <string>
#include <string_view>
#include <vector>

// Cuts one plain-text paragraph into sentences, so a summary can lead with the first one or
// two. Never fails.
namespace norrow::SentenceSplitter {

// The sentences of `text` in order, each trimmed of spaces and tabs, none empty.
std::vector<std::string> sentences(std::string_view text);

} // namespace norrow::SentenceSplitter
