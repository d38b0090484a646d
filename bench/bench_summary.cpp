// Summary pipeline speed: typical throughput of stripping real messages, and the worst cases
// (one megabyte of a single markup character, unclosed constructs, giant words, paragraphs,
// nesting, runs of URLs and look-alikes, one construct or one character spanning the whole)
// at three sizes up to the listener's limit, to show the time grows linearly with the input.
#include "core/MarkdownStripper.h"
#include "core/Summarizer.h"

#include <benchmark/benchmark.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>
#include <vector>

namespace {

namespace MarkdownStripper = norrow::MarkdownStripper;
namespace Summarizer = norrow::Summarizer;

// Every assistant message of the corpus, in file order, separated by blank lines.
const std::string& corpus() {
    static const std::string text = [] {
        std::vector<std::filesystem::path> files;
        for (const auto& entry : std::filesystem::directory_iterator(
                 std::filesystem::path(NORROW_CORPUS_DIR) / "assistant-messages"))
            if (entry.path().extension() == ".md") files.push_back(entry.path());
        std::sort(files.begin(), files.end());
        std::string all;
        for (const auto& file : files) {
            std::ifstream in(file, std::ios::binary);
            all.append(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
            all += "\n\n";
        }
        return all;
    }();
    return text;
}

void StripCorpus(benchmark::State& state) {
    const std::string& text = corpus();
    for (auto _ : state)
        benchmark::DoNotOptimize(MarkdownStripper::strip(text));
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) *
                            static_cast<int64_t>(text.size()));
}
BENCHMARK(StripCorpus)->Unit(benchmark::kMillisecond);

std::string repeated(std::string_view unit, std::size_t size) {
    std::string text;
    text.reserve(size + unit.size());
    while (text.size() < size)
        text += unit;
    text.resize(size);
    return text;
}

// "x" and then backtick runs of lengths 1, 2, 3, …: none of them is ever closed.
std::string distinctBacktickRuns(std::size_t size) {
    std::string text = "x";
    for (std::size_t length = 1; text.size() < size; ++length)
        text += " " + std::string(length, '`');
    text.resize(size);
    return text;
}

// "[[x](https://x/)](https://x/)" nested `depth` deep: links and URLs inside each other.
std::string nestedLinks(std::size_t size) {
    const std::string close = "](https://x/)";
    const std::size_t depth = size / (1 + close.size());
    std::string text = std::string(depth, '[') + "x" + repeated(close, depth * close.size());
    text.resize(size);
    return text;
}

std::string nestedList(std::size_t size) {
    std::string text;
    for (std::size_t depth = 0; text.size() < size; ++depth)
        text += std::string(2 * (depth % 300), ' ') + "- item **" + std::to_string(depth) +
                "** [link](u)\n";
    text.resize(size);
    return text;
}

struct WorstCase {
    const char* name;
    std::function<std::string(std::size_t)> make;
};

const std::vector<WorstCase>& worstCases() {
    static const std::vector<WorstCase> cases = {
        {"stars", [](std::size_t n) { return "x" + repeated("*", n); }},
        {"underscores", [](std::size_t n) { return "x" + repeated("_", n); }},
        {"tildes", [](std::size_t n) { return "x" + repeated("~", n); }},
        {"backticks", [](std::size_t n) { return "x" + repeated("`", n); }},
        {"backtickRuns", distinctBacktickRuns},
        {"brackets", [](std::size_t n) { return repeated("[", n); }},
        {"imageOpeners", [](std::size_t n) { return repeated("![", n); }},
        {"linkLabels", [](std::size_t n) { return repeated("[a](", n); }},
        {"angles", [](std::size_t n) { return repeated("<", n); }},
        {"comments", [](std::size_t n) { return repeated("<!--", n); }},
        {"autolinks", [](std::size_t n) { return repeated("<a:", n) + " >"; }},
        {"ampChain", [](std::size_t n) { return "&" + repeated("amp;", n); }},
        {"paragraph",
         [](std::size_t n) {
             return repeated("Lorem ipsum *dolor* sit `amet`, e.g. see [x](y).\n", n);
         }},
        {"word", [](std::size_t n) { return repeated("a", n); }},
        {"wordWithSlash", [](std::size_t n) { return repeated("a", n) + "/"; }},
        {"nestedList", nestedList},
        {"nestedQuote", [](std::size_t n) { return repeated("> ", n) + "text"; }},
        // URLs and what looks like them: one long word of URLs, URLs in prose, host names
        // and e-mail addresses without any "/", and URLs inside brackets and links.
        {"urls", [](std::size_t n) { return repeated("https://x/", n); }},
        {"urlsInProse", [](std::size_t n) { return repeated("see https://x.io/a?b=c. ", n); }},
        {"wwwHosts", [](std::size_t n) { return repeated("www.x.", n); }},
        {"wwwInProse", [](std::size_t n) { return repeated("at www.x.org, ", n); }},
        {"emails", [](std::size_t n) { return repeated("a.b@c.de", n); }},
        {"mailtoLinks", [](std::size_t n) { return repeated("<mailto:a@b.c>", n); }},
        {"bracketedURLs", [](std::size_t n) { return repeated("[(<https://x/>)](", n); }},
        {"nestedLinks", nestedLinks},
        // One construct spanning the whole text: the pattern must not walk it per character.
        {"longComment", [](std::size_t n) { return "<!--" + repeated("a", n) + "-->"; }},
        {"longStrike", [](std::size_t n) { return "~~" + repeated("a", n) + " ~~"; }},
        {"longStar", [](std::size_t n) { return "*" + repeated("a", n) + " *"; }},
        {"spacedBrackets", [](std::size_t n) { return "x[" + repeated(" ", n) + "]"; }},
        // One user-perceived character of a megabyte.
        {"zwjSequence", [](std::size_t n) { return repeated("\U0001F680\u200D", n); }},
        {"zwjAfterQuestion",
         [](std::size_t n) { return "Done? " + repeated("\U0001F680\u200D", n); }},
        // Beyond markup: text that needs the full character segmentation everywhere, and
        // placeholders forged in the message, which must not multiply a code span.
        {"nonAscii",
         [](std::size_t n) { return repeated("Grüße, 世界 \u2705 \U0001F44D\U0001F3FD ok. ", n); }},
        {"forgedSpans", [](std::size_t n) { return "`code` " + repeated("\uE0000\uE001", n); }},
    };
    return cases;
}

void SummarizeWorstCase(benchmark::State& state) {
    const WorstCase& worst = worstCases()[static_cast<std::size_t>(state.range(0))];
    const std::string text = worst.make(static_cast<std::size_t>(state.range(1)));
    state.SetLabel(worst.name);
    for (auto _ : state)
        benchmark::DoNotOptimize(Summarizer::summarize(text));
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) *
                            static_cast<int64_t>(text.size()));
}

void worstCaseArguments(benchmark::internal::Benchmark* benchmark) {
    for (std::size_t i = 0; i < worstCases().size(); ++i)
        for (const int64_t size : {64 << 10, 256 << 10, 1 << 20})
            benchmark->Args({static_cast<int64_t>(i), size});
}
BENCHMARK(SummarizeWorstCase)->Apply(worstCaseArguments)->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
