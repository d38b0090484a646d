#include "core/Graphemes.h"

#include "core/Unicode.h"

#include <memory>
#include <unicode/brkiter.h>
#include <unicode/locid.h>
#include <unicode/utext.h>

namespace norrow {
namespace {

// Character break iterators are expensive to create and not shareable between threads.
icu::BreakIterator* characterIterator() {
    thread_local std::unique_ptr<icu::BreakIterator> iterator = [] {
        UErrorCode status = U_ZERO_ERROR;
        std::unique_ptr<icu::BreakIterator> it(
            icu::BreakIterator::createCharacterInstance(icu::Locale::getRoot(), status));
        if (U_FAILURE(status)) it.reset();
        return it;
    }();
    return iterator.get();
}

bool isAscii(unsigned char b) {
    return b < 0x80;
}

template <typename Visit> void forEachBoundary(std::string_view text, Visit visit) {
    const std::size_t n = text.size();
    if (n == 0) return;
    icu::BreakIterator* it = nullptr;
    UText utext = UTEXT_INITIALIZER;
    bool opened = false;
    std::size_t p = 0;
    std::size_t iteratorAt = 0;
    while (p < n) {
        const auto b = static_cast<unsigned char>(text[p]);
        // Between two ASCII characters there is always a boundary, except inside CR LF.
        if (isAscii(b) && b != '\r' &&
            (p + 1 == n || isAscii(static_cast<unsigned char>(text[p + 1])))) {
            ++p;
            visit(p);
            continue;
        }
        if (!opened) {
            it = characterIterator();
            UErrorCode status = U_ZERO_ERROR;
            utext_openUTF8(&utext, text.data(), static_cast<int64_t>(n), &status);
            if (it != nullptr && U_SUCCESS(status)) {
                it->setText(&utext, status);
                opened = U_SUCCESS(status);
            }
            if (!opened) it = nullptr;
            opened = true;
            iteratorAt = n + 1;
        }
        std::size_t next = 0;
        if (it != nullptr) {
            // Stepping on from where the iterator stands is cheaper than seeking.
            const int32_t boundary =
                iteratorAt == p ? it->next() : it->following(static_cast<int32_t>(p));
            next = boundary == icu::BreakIterator::DONE ? n : static_cast<std::size_t>(boundary);
            iteratorAt = next;
        }
        if (next <= p) {
            // No iterator: fall back to one scalar per character.
            std::size_t length = 0;
            unicode::decode(text, p, length);
            next = p + length;
        }
        p = std::min(next, n);
        visit(p);
    }
    if (opened) utext_close(&utext);
}

} // namespace

Graphemes::Graphemes(std::string_view utf8) : text_(utf8) {
    starts_.reserve(utf8.size() + 1);
    starts_.push_back(0);
    forEachBoundary(utf8, [this](std::size_t boundary) { starts_.push_back(boundary); });
}

char32_t Graphemes::scalar(std::size_t i) const {
    std::size_t length = 0;
    return unicode::decode(text_, starts_[i], length);
}

bool Graphemes::isWhitespace(std::size_t i) const {
    return unicode::isWhitespace(scalar(i));
}
bool Graphemes::isLetter(std::size_t i) const {
    return unicode::isLetter(scalar(i));
}
bool Graphemes::isNumber(std::size_t i) const {
    return unicode::isNumber(scalar(i));
}

std::size_t Graphemes::count(std::string_view utf8) {
    std::size_t n = 0;
    forEachBoundary(utf8, [&n](std::size_t) { ++n; });
    return n;
}

} // namespace norrow
