#include "core/Summarizer.h"

#include "support/Files.h"

#include <cmath>
#include <gtest/gtest.h>
#include <limits>

namespace norrow {
namespace {

using Stats = HookEvent::Stats;

HookEvent stopWith(std::optional<std::string> message, std::optional<Stats> stats = {}) {
    HookEvent event(HookEvent::Name::stop);
    event.lastAssistantMessage = std::move(message);
    event.stats = stats;
    return event;
}

TEST(Summarizer, LeadsWithTheOpeningSentencesAndClassifies) {
    const std::tuple<const char*, const char*, SummaryKind> cases[] = {
        {"Fixed the bug. Tests pass.", "Fixed the bug. Tests pass.", SummaryKind::done},
        {"Summary\n\nAll good.", "Summary \u2014 All good.", SummaryKind::done},
        {"## Plan\n- step one\n- step two", "Plan \u2014 step one", SummaryKind::done},
        {"I refactored the whole parser module today. Tests pass.",
         "I refactored the whole parser module today.", SummaryKind::done},
        {"(I refactored the whole parser module today.\")\u2003Tests pass.",
         "(I refactored the whole parser module today.\")", SummaryKind::done},
        {"I refactored the whole parser module today\u2026\u00A0Tests pass.",
         "I refactored the whole parser module today\u2026", SummaryKind::done},
        {"Done. Want me to push?", "Done. Want me to push?", SummaryKind::needsYou},
        {"Ready to merge? \U0001F680", "Ready to merge? \U0001F680", SummaryKind::needsYou},
        {"(shall I proceed?)", "(shall I proceed?)", SummaryKind::needsYou},
        {"All set.\n\n```\ncode\n```\n\nAnything else?", "All set. Anything else?",
         SummaryKind::needsYou},
        {"Is it? Yes. It is done.", "Is it? Yes.", SummaryKind::needsYou},
    };
    for (const auto& [message, text, kind] : cases) {
        const Summary summary = Summarizer::summarize(stopWith(message), std::nullopt);
        EXPECT_EQ(summary.text, text) << message;
        EXPECT_EQ(summary.kind, kind) << message;
        EXPECT_FALSE(summary.usedFallback) << message;
    }
}

TEST(Summarizer, FallsBackToTheKindAndToolCount) {
    EXPECT_EQ(Summarizer::summarize(stopWith(std::nullopt, Stats{3, {}, {}, {}, {}}), Seconds(125)),
              (Summary{"Done \u00B7 3 tools", SummaryKind::done, "3 tools", "2m 5s", true}));
    EXPECT_EQ(Summarizer::summarize("```\nonly code\n```").text, "Done");
    EXPECT_EQ(Summarizer::summarize(stopWith("[](x)", Stats{1, {}, {}, {}, {}}), {}).text,
              "Done \u00B7 1 tool");
    EXPECT_EQ(Summarizer::summarize(stopWith("", Stats{0, {}, {}, {}, {}}), {}).text, "Done");
}

TEST(Summarizer, NotificationsFollowTheirType) {
    using Type = HookEvent::NotificationType;
    const std::pair<std::optional<Type>, SummaryKind> cases[] = {
        {Type::agentNeedsInput, SummaryKind::needsYou},
        {Type::agentCompleted, SummaryKind::done},
        {Type::authSuccess, SummaryKind::done},
        {Type::permissionPrompt, SummaryKind::waiting},
        {Type::idlePrompt, SummaryKind::waiting},
        {{}, SummaryKind::waiting}};
    for (const auto& [type, kind] : cases) {
        HookEvent event(HookEvent::Name::notification);
        event.notificationType = type;
        event.message = "Claude needs your **permission**?";
        EXPECT_EQ(Summarizer::summarize(event, std::nullopt),
                  (Summary{"Claude needs your permission?", kind, {}, {}, false}));
    }
}

// The client's own error texts, from the corpus, as the last message of a failed turn.
TEST(Summarizer, AFailedTurnNeedsTheUserAndGivesTheError) {
    const auto message = [](const char* name) {
        return test::contents(std::filesystem::path(NORROW_CORPUS_DIR) / "assistant-messages" /
                              name);
    };
    const std::pair<std::optional<std::string>, std::string> cases[] = {
        {message("0040.md"),
         "Turn failed: You've hit your limit \u00B7 resets 8pm (America/Chicago)"},
        {message("0001.md"),
         "Turn failed: Provider API request failed. Provider exception: Request timed out."},
        {R"(API Error: 500 {"type":"error","error":{"type":"api_error","message":"Internal )"
         R"(server error"},"request_id":"req_011CUaBcDeFgHiJkLmNoPqRs"})",
         R"(Turn failed: API Error: 500 {"type":"error","error":{"type":"api_error","message":)"
         "\"Internal server\u2026"},
        {std::nullopt, "Turn failed"},
    };
    for (const auto& [error, text] : cases) {
        HookEvent event(HookEvent::Name::stopFailure);
        event.lastAssistantMessage = error;
        const Summary summary = Summarizer::summarize(event, Seconds(3));
        EXPECT_EQ(summary.text, text);
        EXPECT_EQ(summary.kind, SummaryKind::needsYou);
        EXPECT_EQ(summary.durationText, "3s");
    }
}

TEST(Summarizer, TruncatesAtWordsWithoutDanglingPunctuation) {
    const std::tuple<std::string, int, std::string> cases[] = {
        {"exactly", 7, "exactly"},
        {"Hello world foo", 10, "Hello\u2026"},
        {"abc, def ghi", 8, "abc\u2026"},
        {"path/to/somewhere/deep", 10, "path/to\u2026"},
        {", , , , , ,", 5, ", , \u2026"},
        {"\U0001F44D\U0001F3FD\U0001F44D\U0001F3FD\U0001F44D\U0001F3FD", 2,
         "\U0001F44D\U0001F3FD\u2026"},
        {"abc", 1, "a"},
        {"abc", 0, ""},
        {"abc", -3, ""}};
    for (const auto& [text, limit, expected] : cases)
        EXPECT_EQ(Summarizer::truncate(text, limit), expected) << text;
}

TEST(Summarizer, DurationText) {
    const double inf = std::numeric_limits<double>::infinity(), nan = std::nan("");
    const std::pair<std::optional<double>, std::optional<std::string>> cases[] = {
        {{}, {}},    {-1, {}},       {-0.4, {}},    {nan, {}},       {inf, {}},
        {1e300, {}}, {0, "0s"},      {59.4, "59s"}, {59.5, "1m"},    {125, "2m 5s"},
        {300, "5m"}, {3599.5, "1h"}, {3659, "1h"},  {3661, "1h 1m"}, {7325, "2h 2m"}};
    for (const auto& [seconds, text] : cases) {
        const auto duration = seconds ? std::optional(Seconds(*seconds)) : std::nullopt;
        EXPECT_EQ(Summarizer::durationText(duration), text) << seconds.value_or(-99);
    }
}

TEST(Summarizer, StatLine) {
    const std::pair<std::optional<Stats>, std::optional<std::string>> cases[] = {
        {std::nullopt, std::nullopt},
        {Stats{}, std::nullopt},
        {Stats{{}, {}, {}, {}, 1.5}, std::nullopt},
        {Stats{3, 2, 10, 4, 0.2}, "3 tools \u00B7 2 files \u00B7 +10 \u22124"},
        {Stats{1, 0, {}, {}, {}}, "1 tool \u00B7 0 files"},
        {Stats{{}, {}, 5, {}, {}}, "+5"},
        {Stats{{}, {}, {}, 4, {}}, "\u22124"},
    };
    for (const auto& [stats, line] : cases)
        EXPECT_EQ(Summarizer::statLine(stats), line);
}

} // namespace
} // namespace norrow
