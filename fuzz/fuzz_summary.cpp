// Summarizes arbitrary bytes as an agent's Markdown message: the banner text must always fit,
// and no stage may fail on any input, valid UTF-8 or not.
//
// A short input also stands for a long message: the rest of it repeated to the size that its
// first byte names, up to the listener's limit. So runs of URLs, host names, addresses,
// brackets or joiners of every length get tried at full size, and a cost that grows faster
// than the text (a pattern that backtracks, a bounded region that stops being bounded) shows
// up as a slow unit.
#include "core/Graphemes.h"
#include "core/MarkdownStripper.h"
#include "core/RequestProtocol.h"
#include "core/SentenceSplitter.h"
#include "core/Summarizer.h"
#include "core/SummaryLint.h"
#include "core/Unicode.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace {

constexpr std::size_t kLongestUnit = 64;
constexpr std::size_t kSizeStep = 4096;

void summarizeChecked(std::string_view bytes) {
    const std::string text = norrow::unicode::toValidUtf8(bytes);
    const norrow::Summary summary = norrow::Summarizer::summarize(text);
    if (norrow::Graphemes::count(summary.text) >
        static_cast<std::size_t>(norrow::Summarizer::maxLength))
        __builtin_trap();
    (void)norrow::SummaryLint::markdownArtifacts(summary.text);
    (void)norrow::SummaryLint::lengthViolations(
        summary.text, norrow::Summarizer::leadSentence(text), norrow::Summarizer::maxLength);
    (void)norrow::SentenceSplitter::sentences(text);
    // Raw bytes as well, as a caller that skipped the sanitizing would pass them.
    (void)norrow::MarkdownStripper::strip(bytes);
    (void)norrow::Summarizer::summarize(bytes);
}

std::string run(std::string_view unit, std::size_t size) {
    std::string text;
    text.reserve(size + unit.size());
    while (text.size() < size)
        text += unit;
    text.resize(size);
    return text;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    summarizeChecked(bytes);
    if (size >= 2 && size <= kLongestUnit) {
        const std::size_t length = std::min<std::size_t>((data[0] + 1u) * kSizeStep,
                                                         norrow::RequestProtocol::maxContentLength);
        summarizeChecked(run(bytes.substr(1), length));
    }
    return 0;
}
