#pragma once

#include <string>
#include <string_view>
#include <vector>

// Checks a finished summary text against the rules summaries follow: no Markdown left over,
// no URL, no line break, no list marker, not too long, and a truncation that kept a prefix of
// the lead and cut between words. Used to check the pipeline over many real messages.
namespace norrow::SummaryLint {

struct Violation {
    // Short rule name, e.g. "too-long".
    std::string rule;
    // What was found, e.g. "152 > 140".
    std::string detail;

    // "rule: detail".
    std::string description() const { return rule + ": " + detail; }
    bool operator==(const Violation&) const = default;
};

// Markdown, URL and line-break findings, in rule order; empty when the text passes.
std::vector<Violation> markdownArtifacts(std::string_view text);
// Length and truncation findings for a summary cut from `lead`, counted in characters.
std::vector<Violation> lengthViolations(std::string_view summary, std::string_view lead, int limit);

} // namespace norrow::SummaryLint
