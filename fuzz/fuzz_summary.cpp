// Summarizes arbitrary bytes as an agent's Markdown message: the banner text must always fit,
// and no stage may fail on any input, valid UTF-8 or not.
#include "core/Graphemes.h"
#include "core/MarkdownStripper.h"
#include "core/SentenceSplitter.h"
#include "core/Summarizer.h"
#include "core/SummaryLint.h"
#include "core/Unicode.h"

#include <cstddef>
#include <cstdint>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
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
    return 0;
}
