#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace norrow {

// A UTF-8 text viewed as user-perceived characters (extended grapheme clusters).
// Index i names the i-th character; the text must outlive the view.
class Graphemes {
public:
    explicit Graphemes(std::string_view utf8);

    std::size_t size() const { return starts_.size() - 1; }
    bool empty() const { return size() == 0; }
    std::string_view text() const { return text_; }

    std::string_view operator[](std::size_t i) const {
        return text_.substr(starts_[i], starts_[i + 1] - starts_[i]);
    }
    // Byte offset of character i; offset(size()) is the text's byte length.
    std::size_t offset(std::size_t i) const { return starts_[i]; }
    // Characters [from, to) as text.
    std::string_view slice(std::size_t from, std::size_t to) const {
        return text_.substr(starts_[from], starts_[to] - starts_[from]);
    }
    // The first Unicode scalar of character i.
    char32_t scalar(std::size_t i) const;

    bool isWhitespace(std::size_t i) const;
    bool isLetter(std::size_t i) const;
    bool isNumber(std::size_t i) const;
    // True when character i is exactly the one-byte character `c`.
    bool is(std::size_t i, char c) const {
        return starts_[i + 1] - starts_[i] == 1 && text_[starts_[i]] == c;
    }
    bool is(std::size_t i, std::string_view character) const { return (*this)[i] == character; }

    // The number of characters in a text.
    static std::size_t count(std::string_view utf8);
    // Calls `visit(character)` with each character of a text in order, as a slice of it,
    // without storing them; stops as soon as `visit` returns false.
    template <typename Visit> static void forEach(std::string_view utf8, Visit visit) {
        visitEach(
            utf8,
            [](void* context, std::string_view character) {
                return (*static_cast<Visit*>(context))(character);
            },
            &visit);
    }

private:
    static void visitEach(std::string_view utf8, bool (*visit)(void*, std::string_view),
                          void* context);

    std::string_view text_;
    std::vector<std::size_t> starts_;
};

// Whether a character (or any text) is one of a fixed set of texts.
template <std::size_t N>
bool isOneOf(const std::array<std::string_view, N>& set, std::string_view text) {
    return std::find(set.begin(), set.end(), text) != set.end();
}

} // namespace norrow
