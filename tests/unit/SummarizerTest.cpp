#include "core/Summarizer.h"

#include "core/Graphemes.h"

#include <cmath>
#include <gtest/gtest.h>
#include <limits>

namespace norrow {
namespace {

using Type = HookEvent::NotificationType;

HookEvent stopWith(std::optional<std::string> message, std::optional<HookEvent::Stats> stats = {}) {
    HookEvent event(HookEvent::Name::stop);
    event.lastAssistantMessage = std::move(message);
    event.stats = stats;
    return event;
}

TEST(Summarizer, LeadsWithTheOpeningSentencesAndClassifies) {
    struct Case {
        const char* message;
        const char* text;
        SummaryKind kind;
    };
    const Case cases[] = {
        {"Fixed the bug. Tests pass.", "Fixed the bug. Tests pass.", SummaryKind::done},
        {"Summary\n\nAll good.", "Summary \u2014 All good.", SummaryKind::done},
        {"## Plan\n- step one\n- step two", "Plan \u2014 step one", SummaryKind::done},
        {"I refactored the whole parser module today. Tests pass.",
         "I refactored the whole parser module today.", SummaryKind::done},
        {"Should I also update the docs?", "Should I also update the docs?", SummaryKind::needsYou},
        {"Done. Want me to push?", "Done. Want me to push?", SummaryKind::needsYou},
        {"Ready to merge? \U0001F680", "Ready to merge? \U0001F680", SummaryKind::needsYou},
        {"(shall I proceed?)", "(shall I proceed?)", SummaryKind::needsYou},
        {"All set.\n\n```\ncode\n```\n\nAnything else?", "All set. Anything else?",
         SummaryKind::needsYou},
        {"Is it? Yes. It is done.", "Is it? Yes.", SummaryKind::needsYou},
    };
    for (const Case& c : cases) {
        const Summary summary = Summarizer::summarize(stopWith(c.message), std::nullopt);
        EXPECT_EQ(summary.text, c.text) << c.message;
        EXPECT_EQ(summary.kind, c.kind) << c.message;
        EXPECT_FALSE(summary.usedFallback) << c.message;
    }
}

TEST(Summarizer, FallsBackToTheKindAndToolCount) {
    const Summary noMessage =
        Summarizer::summarize(stopWith(std::nullopt, HookEvent::Stats{3, {}, {}, {}, {}}), 125);
    EXPECT_EQ(noMessage,
              (Summary{"Done \u00B7 3 tools", SummaryKind::done, "3 tools", "2m 5s", true}));
    EXPECT_EQ(Summarizer::summarize("```\nonly code\n```").text, "Done");
    EXPECT_EQ(
        Summarizer::summarize(stopWith("[](x)", HookEvent::Stats{1, {}, {}, {}, {}}), {}).text,
        "Done \u00B7 1 tool");
    EXPECT_EQ(Summarizer::summarize(stopWith("", HookEvent::Stats{0, {}, {}, {}, {}}), {}).text,
              "Done");
}

TEST(Summarizer, NotificationsFollowTheirTypeAndFallBackToMessage) {
    struct Case {
        std::optional<Type> type;
        SummaryKind kind;
    };
    const Case cases[] = {{Type::agentNeedsInput, SummaryKind::needsYou},
                          {Type::agentCompleted, SummaryKind::done},
                          {Type::authSuccess, SummaryKind::done},
                          {Type::permissionPrompt, SummaryKind::waiting},
                          {Type::idlePrompt, SummaryKind::waiting},
                          {std::nullopt, SummaryKind::waiting}};
    for (const Case& c : cases) {
        HookEvent event(HookEvent::Name::notification);
        event.notificationType = c.type;
        event.message = "Claude needs your **permission**?";
        const Summary summary = Summarizer::summarize(event, std::nullopt);
        EXPECT_EQ(summary.kind, c.kind);
        EXPECT_EQ(summary.text, "Claude needs your permission?");
    }
}

TEST(Summarizer, TruncatesAtWordsWithoutDanglingPunctuation) {
    struct Case {
        const char* text;
        int limit;
        const char* expected;
    };
    const std::string word(200, 'a');
    const std::string hardCut = std::string(139, 'a') + "\u2026";
    const Case cases[] = {
        {"short", 140, "short"},
        {"exactly", 7, "exactly"},
        {"Hello world foo", 10, "Hello\u2026"},
        {"abc, def ghi", 8, "abc\u2026"},
        {"path/to/somewhere/deep", 10, "path/to\u2026"},
        {", , , , , ,", 5, ", , \u2026"},
        {"\U0001F44D\U0001F3FD\U0001F44D\U0001F3FD\U0001F44D\U0001F3FD\U0001F44D\U0001F3FD", 3,
         "\U0001F44D\U0001F3FD\U0001F44D\U0001F3FD\u2026"},
        {word.c_str(), 140, hardCut.c_str()},
        {"abc", 1, "a"},
        {"abc", 0, ""},
        {"abc", -3, ""},
    };
    for (const Case& c : cases)
        EXPECT_EQ(Summarizer::truncate(c.text, c.limit), c.expected) << c.text;

    std::string lead;
    for (int i = 0; i < 40; ++i)
        lead += "word, ";
    const std::string cut = Summarizer::truncate(lead, Summarizer::maxLength);
    EXPECT_LE(Graphemes::count(cut), 140u);
    EXPECT_EQ(cut.substr(cut.size() - 4), "d\u2026");
}

TEST(Summarizer, DurationText) {
    struct Case {
        std::optional<double> seconds;
        std::optional<std::string> text;
    };
    const Case cases[] = {
        {std::nullopt, std::nullopt},
        {-1, std::nullopt},
        {-0.4, std::nullopt},
        {std::nan(""), std::nullopt},
        {std::numeric_limits<double>::infinity(), std::nullopt},
        {1e300, std::nullopt},
        {0, "0s"},
        {42, "42s"},
        {59.4, "59s"},
        {59.5, "1m"},
        {125, "2m 5s"},
        {300, "5m"},
        {3599.5, "1h"},
        {3659, "1h"},
        {3661, "1h 1m"},
        {7325, "2h 2m"},
    };
    for (const Case& c : cases)
        EXPECT_EQ(Summarizer::durationText(c.seconds), c.text) << c.seconds.value_or(-99);
}

TEST(Summarizer, StatLine) {
    using Stats = HookEvent::Stats;
    struct Case {
        std::optional<Stats> stats;
        std::optional<std::string> line;
    };
    const Case cases[] = {
        {std::nullopt, std::nullopt},
        {Stats{}, std::nullopt},
        {Stats{{}, {}, {}, {}, 1.5}, std::nullopt},
        {Stats{3, 2, 10, 4, 0.2}, "3 tools \u00B7 2 files \u00B7 +10 \u22124"},
        {Stats{1, 0, {}, {}, {}}, "1 tool \u00B7 0 files"},
        {Stats{{}, {}, 5, {}, {}}, "+5"},
        {Stats{{}, {}, {}, 4, {}}, "\u22124"},
    };
    for (const Case& c : cases)
        EXPECT_EQ(Summarizer::statLine(c.stats), c.line);
}

TEST(SummaryKind, RawValuesLabelsAndSymbols) {
    const char* raws[] = {"done", "needsYou", "waiting"};
    const char* labels[] = {"Done", "Needs you", "Waiting"};
    const char* symbols[] = {"\u2705", "\u2753", "\u23F8\uFE0F"};
    for (std::size_t i = 0; i < allSummaryKinds.size(); ++i) {
        const SummaryKind kind = allSummaryKinds[i];
        EXPECT_EQ(rawValue(kind), raws[i]);
        EXPECT_EQ(label(kind), labels[i]);
        EXPECT_EQ(symbol(kind), symbols[i]);
        EXPECT_EQ(summaryKindFromRaw(raws[i]), kind);
    }
    EXPECT_EQ(summaryKindFromRaw("Done"), std::nullopt);
}

} // namespace
} // namespace norrow
