#pragma once

#include <cstddef>
#include <string_view>

// Pieces of a text to segment instead of the whole, for work that needs only a long text's
// first or last user-perceived characters.
namespace norrow::textwindow {

// The window to try after `window` for a text of `size` bytes: eight times larger, or the whole
// text once that would pass a quarter of it. So the windows tried before the whole add at most
// a third to segmenting it once, and a text that ends early needs no more than it holds.
std::size_t grown(std::size_t window, std::size_t size);

// A prefix of at least `bytes` bytes (the whole text when shorter) ending between two scalars.
// It splits into the text's first characters, except that its last character may continue
// past it.
std::string_view prefix(std::string_view text, std::size_t bytes);
// The shortest suffix of at least `bytes` bytes that starts at a clean cut, or the whole text
// when there is none. Characters always break at a clean cut and no rule that joins characters
// reaches across it (after a control, or between a plain character and one that does not
// attach to it), so the suffix splits exactly like the text's end.
std::string_view suffix(std::string_view text, std::size_t bytes);

} // namespace norrow::textwindow
