#include "core/SummaryLint.h"

#include "core/Graphemes.h"
#include "core/MarkdownStripper.h"
#include "core/Unicode.h"

#include <memory>
#include <unicode/regex.h>

namespace norrow::SummaryLint {
namespace {

constexpr std::string_view kEllipsis = "\u2026";

const icu::RegexPattern* leadingMarker() {
    static const std::unique_ptr<icu::RegexPattern> pattern =
        MarkdownStripper::Regexes::compile(uR"re(^(?:[-*+•>]\s|#{1,6}\s|\d+[.)]\s))re");
    return pattern.get();
}

// Whether `pattern` matches `text` anywhere (`anywhere`) or at its start; false when absent.
bool matches(const icu::RegexPattern* pattern, const icu::UnicodeString& text, bool anywhere) {
    if (pattern == nullptr) return false;
    UErrorCode status = U_ZERO_ERROR;
    const std::unique_ptr<icu::RegexMatcher> matcher(pattern->matcher(text, status));
    if (U_FAILURE(status)) return false;
    const bool found = anywhere ? matcher->find(0, status) : matcher->lookingAt(status);
    return U_SUCCESS(status) && found;
}

bool contains(std::string_view text, std::string_view part) {
    return text.find(part) != std::string_view::npos;
}

} // namespace

std::vector<Violation> markdownArtifacts(std::string_view text) {
    const icu::UnicodeString utf16 = icu::UnicodeString::fromUTF8(
        icu::StringPiece(text.data(), static_cast<int32_t>(text.size())));
    const bool checks[] = {
        contains(text, "```") || contains(text, "~~~"),
        contains(text, "`"),
        contains(text, "**"),
        contains(text, "__"),
        contains(text, "*"),
        contains(text, "]("),
        contains(text, "|"),
        contains(text, "://"),
        contains(unicode::lowercased(text), "www."),
        matches(MarkdownStripper::Regexes::pattern(MarkdownStripper::Regexes::Name::htmlTag), utf16,
                true),
        matches(leadingMarker(), utf16, false),
        contains(text, "\n"),
    };
    static const Violation kFindings[] = {
        {"code-fence", "``` or ~~~"},
        {"backtick", "`"},
        {"bold", "**"},
        {"bold", "__"},
        {"emphasis", "*"},
        {"link", "]("},
        {"table", "|"},
        {"url", "://"},
        {"url", "www."},
        {"html", "<tag>"},
        {"list-marker", "leading marker"},
        {"newline", "\\n"},
    };
    std::vector<Violation> found;
    for (std::size_t i = 0; i < std::size(checks); ++i)
        if (checks[i]) found.push_back(kFindings[i]);
    return found;
}

std::vector<Violation> lengthViolations(std::string_view summary, std::string_view lead,
                                        int limit) {
    std::vector<Violation> found;
    const Graphemes cut(summary);
    if (static_cast<long long>(cut.size()) > limit)
        found.push_back({"too-long", std::to_string(cut.size()) + " > " + std::to_string(limit)});

    const Graphemes whole(lead);
    const bool truncated = !cut.empty() && cut[cut.size() - 1] == kEllipsis;
    if (!truncated || (!whole.empty() && whole[whole.size() - 1] == kEllipsis)) return found;
    const std::size_t kept = cut.size() - 1;
    if (whole.size() < kept || whole.slice(0, kept) != cut.slice(0, kept)) {
        found.push_back({"not-a-prefix", "truncated text is not a prefix of the lead"});
    } else if (whole.size() > kept && (whole.isLetter(kept) || whole.isNumber(kept))) {
        found.push_back({"mid-word", "cut before '" + std::string(whole[kept]) + "'"});
    }
    return found;
}

} // namespace norrow::SummaryLint
