#include "cli/Cli.h"
#include "core/HookEvent.h"
#include "core/MarkdownStripper.h"
#include "core/SentenceSplitter.h"
#include "core/Summarizer.h"
#include "core/SummaryBridge.h"
#include "core/SummaryLint.h"
#include "core/Unicode.h"

#include <iostream>
#include <memory>
#include <optional>
#include <stdexcept>
#include <vector>

namespace norrow::cli {
namespace {

using ordered_json = nlohmann::ordered_json;

// Input as valid UTF-8: malformed sequences become U+FFFD, so any bytes get an answer.
std::string readText(const std::string& file = {}) {
    return unicode::toValidUtf8(readInput(file));
}

void addSummarize(CLI::App& app, int& status) {
    auto* command = app.add_subcommand(
        "summarize", "Summarize a hook payload (or Markdown) read from standard input");
    auto duration = std::make_shared<std::optional<Seconds>>();
    auto markdown = std::make_shared<bool>(false);
    auto banner = std::make_shared<bool>(false);
    command
        ->add_option_function<double>(
            "--duration", [duration](const double& seconds) { *duration = Seconds(seconds); },
            "The turn's length in seconds")
        ->type_name("SECONDS");
    command->add_flag("--markdown", *markdown,
                      "Standard input is the agent's Markdown message itself");
    command->add_flag("--banner", *banner,
                      "Print what the banner shows (notifications keep their own text)");
    command->callback([duration, markdown, banner, &status] {
        const std::string input = readInput();
        std::optional<HookEvent> event;
        if (*markdown) {
            event.emplace(HookEvent::Name::userPromptSubmit);
            event->lastAssistantMessage = unicode::toValidUtf8(input);
        } else {
            // The listener's own decoder, so that a payload is summarised exactly when the
            // listener would accept it.
            event = HookEvent::decode(input);
        }
        if (!event) {
            status = refuse("undecodable event");
            return;
        }
        if (*banner) {
            const SummaryBridge::Result result = SummaryBridge::summarize(*event, *duration);
            printJson(ordered_json{{"text", result.text},
                                   {"kind", rawValue(result.kind)},
                                   {"statLine", orNull(result.statLine)},
                                   {"durationText", orNull(result.durationText)}});
        } else {
            const Summary summary = Summarizer::summarize(*event, *duration);
            printJson(ordered_json{{"text", summary.text},
                                   {"kind", rawValue(summary.kind)},
                                   {"statLine", orNull(summary.statLine)},
                                   {"durationText", orNull(summary.durationText)},
                                   {"usedFallback", summary.usedFallback}});
        }
        status = success;
    });
}

void addStrip(CLI::App& app, int& status) {
    auto* command = app.add_subcommand(
        "strip", "Show how Markdown from standard input is reduced to plain blocks");
    command->callback([&status] {
        const std::string text = readText();
        const std::vector<std::string> blocks = MarkdownStripper::rawBlocks(text);
        ordered_json cleaned = ordered_json::array();
        for (const std::string& block : blocks)
            cleaned.push_back(MarkdownStripper::inlineText(block));
        printJson(ordered_json{
            {"blocks", blocks}, {"inline", cleaned}, {"text", MarkdownStripper::strip(text)}});
        status = success;
    });
}

void addSentences(CLI::App& app, int& status) {
    auto* command =
        app.add_subcommand("sentences", "Split plain text from standard input into sentences");
    command->callback([&status] {
        printJson(ordered_json(SentenceSplitter::sentences(readText())));
        status = success;
    });
}

void print(const std::string& prefix, const std::vector<SummaryLint::Violation>& violations) {
    for (const SummaryLint::Violation& violation : violations)
        std::cout << prefix << violation.description() << '\n';
    std::cout << std::flush;
}

std::vector<SummaryLint::Violation> lintSummaryOf(const std::string& markdown) {
    const Summary summary = Summarizer::summarize(markdown);
    std::vector<SummaryLint::Violation> violations = SummaryLint::markdownArtifacts(summary.text);
    for (auto& violation : SummaryLint::lengthViolations(
             summary.text, Summarizer::leadSentence(markdown), Summarizer::maxLength))
        violations.push_back(std::move(violation));
    return violations;
}

void addLint(CLI::App& app, int& status) {
    auto* command =
        app.add_subcommand("lint", "Check a summary text, or the summaries of Markdown files");
    auto summary = std::make_shared<std::optional<std::string>>();
    auto lead = std::make_shared<std::optional<std::string>>();
    auto limit = std::make_shared<int>(Summarizer::maxLength);
    auto files = std::make_shared<std::vector<std::string>>();
    auto* summaryOption = command->add_option_function<std::string>(
        "--summary", [summary](const std::string& text) { *summary = text; },
        "A finished summary text to check");
    command
        ->add_option_function<std::string>(
            "--lead", [lead](const std::string& text) { *lead = text; },
            "The lead the summary was cut from; adds the length checks")
        ->needs(summaryOption);
    command->add_option("--limit", *limit, "Length limit in characters for the length checks")
        ->needs(summaryOption)
        ->type_name("N");
    command->add_option("FILE", *files, "Markdown files whose summaries to check")
        ->excludes(summaryOption);
    command->require_option(1, 0);
    command->callback([summary, lead, limit, files, &status] {
        if (*summary) {
            const std::string text = unicode::toValidUtf8(**summary);
            std::vector<SummaryLint::Violation> violations = SummaryLint::markdownArtifacts(text);
            if (*lead) {
                for (auto& violation :
                     SummaryLint::lengthViolations(text, unicode::toValidUtf8(**lead), *limit))
                    violations.push_back(std::move(violation));
            }
            print({}, violations);
            status = violations.empty() ? success : refused;
            return;
        }
        std::size_t count = 0;
        for (const std::string& file : *files) {
            std::string markdown;
            try {
                markdown = readText(file);
            } catch (const std::runtime_error& error) {
                status = refuse(error.what());
                return;
            }
            const std::vector<SummaryLint::Violation> violations = lintSummaryOf(markdown);
            print(file + ": ", violations);
            count += violations.size();
        }
        std::cout << files->size() << " files, " << count << " violations\n" << std::flush;
        status = count > 0 ? refused : success;
    });
}

} // namespace

void addSummaryCommands(CLI::App& app, int& status) {
    addSummarize(app, status);
    addStrip(app, status);
    addSentences(app, status);
    addLint(app, status);
}

} // namespace norrow::cli
