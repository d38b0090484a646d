#include "core/TextWindow.h"

#include "core/Unicode.h"

#include <algorithm>

namespace norrow::textwindow {
namespace {

bool isContinuation(char byte) {
    return (static_cast<unsigned char>(byte) & 0xC0) == 0x80;
}

// Whether the text may be cut between the scalar that ends at `at` and the one that starts
// there (0 < at < size, `at` at a scalar boundary). Malformed bytes never make a cut.
bool isCleanCut(std::string_view text, std::size_t at) {
    std::size_t start = at - 1;
    while (start > 0 && isContinuation(text[start]))
        --start;
    std::size_t length = 0;
    const char32_t before = unicode::decode(text, start, length);
    if (start + length != at || (before == 0xFFFD && length == 1)) return false;
    const char32_t after = unicode::decode(text, at, length);
    if (after == 0xFFFD && length == 1) return false;
    return unicode::alwaysBreaksBetween(before, after);
}

} // namespace

std::size_t grown(std::size_t window, std::size_t size) {
    const std::size_t next = window * 8;
    return next > size / 4 ? size : next;
}

std::string_view prefix(std::string_view text, std::size_t bytes) {
    std::size_t end = std::min(bytes, text.size());
    while (end < text.size() && isContinuation(text[end]))
        ++end;
    return text.substr(0, end);
}

std::string_view suffix(std::string_view text, std::size_t bytes) {
    if (bytes >= text.size()) return text;
    for (std::size_t at = std::min(text.size() - bytes, text.size() - 1); at > 0; --at)
        if (!isContinuation(text[at]) && isCleanCut(text, at)) return text.substr(at);
    return text;
}

} // namespace norrow::textwindow
