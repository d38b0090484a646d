#include "core/SessionStore.h"

#include <atomic>
#include <gtest/gtest.h>
#include <thread>
#include <vector>

namespace norrow {
namespace {

using namespace std::chrono_literals;

const SessionStore::TimePoint t0 = SessionStore::TimePoint{} + 1'800'000'000s;

HookEvent prompt(std::optional<std::string> promptId, std::string sessionId = "s") {
    HookEvent event(HookEvent::Name::userPromptSubmit);
    event.promptId = std::move(promptId);
    event.sessionId = std::move(sessionId);
    event.cwd = "/work/app";
    event.prompt = "fix it";
    return event;
}

TEST(SessionStore, ATurnLivesFromItsPromptToItsStop) {
    SessionStore store;
    EXPECT_FALSE(store.begin(prompt(std::nullopt), "x", t0));
    EXPECT_TRUE(store.begin(prompt("p1"), "com.example.Terminal", t0));
    const SessionStore::OpenTurn expected{"p1",     "s", "/work/app",
                                          "fix it", t0,  "com.example.Terminal"};
    EXPECT_EQ(store.peek("p1"), expected);
    EXPECT_FALSE(store.peek(std::nullopt));
    EXPECT_FALSE(store.finish(prompt("other"), t0 + 1s));
    EXPECT_FALSE(store.finish(prompt(std::nullopt), t0 + 1s));
    EXPECT_EQ(store.openCount(), 1u);

    const auto finished = store.finish(prompt("p1"), t0 + 125500ms);
    ASSERT_TRUE(finished);
    EXPECT_EQ(finished->turn, expected);
    EXPECT_DOUBLE_EQ(finished->duration, 125.5);
    EXPECT_FALSE(store.peek("p1"));
    EXPECT_FALSE(store.finish(prompt("p1"), t0 + 200s));
    EXPECT_EQ(store.openCount(), 0u);
}

TEST(SessionStore, ASecondPromptRestartsTheTurnAndTheWallClockRules) {
    SessionStore store;
    store.begin(prompt("p1", "first"), "com.example.A", t0);
    store.begin(prompt("p1", "second"), std::nullopt, t0 + 60s);
    EXPECT_EQ(store.openCount(), 1u);
    const auto finished = store.finish(prompt("p1"), t0 + 57500ms); // the clock went back
    EXPECT_DOUBLE_EQ(finished->duration, -2.5);
    EXPECT_EQ(finished->turn.sessionId, "second");
    EXPECT_EQ(finished->turn.frontmostAtStart, std::nullopt);
}

TEST(SessionStore, SweepDropsTurnsAtLeastStaleAfterOld) {
    const std::pair<std::chrono::nanoseconds, bool> ages[] = {
        {21600s, false}, {21600s - 1ms, true}, {30000s, false}, {0s, true}, {-5s, true}};
    SessionStore store;
    EXPECT_EQ(store.sweep(t0), 0u);
    for (const auto& [age, kept] : ages)
        store.begin(prompt(std::to_string(age.count())), std::nullopt, t0 - age);
    EXPECT_EQ(store.sweep(t0), 2u);
    for (const auto& [age, kept] : ages)
        EXPECT_EQ(store.peek(std::to_string(age.count())).has_value(), kept);
}

// Owners open and close their own turns while thieves try to close everyone's and a sweeper
// keeps dropping everything: each turn must end exactly once.
TEST(SessionStore, ConcurrentUseNeitherLosesNorDuplicatesTurns) {
    constexpr int owners = 4, thieves = 2, turnsPerOwner = 2000, total = owners * turnsPerOwner;
    SessionStore store(60);
    std::vector<HookEvent> events;
    for (int i = 0; i < total; ++i)
        events.push_back(prompt("p" + std::to_string(i)));
    std::vector<std::atomic<int>> endings(total);
    std::atomic<std::size_t> swept = 0;
    std::atomic<int> ownersDone = 0;
    const auto close = [&](int i) {
        if (store.finish(events[i], t0 + 1s)) endings[i].fetch_add(1);
    };

    std::vector<std::thread> threads;
    for (int o = 0; o < owners; ++o) {
        threads.emplace_back([&, o] {
            for (int i = o * turnsPerOwner; i < (o + 1) * turnsPerOwner; ++i) {
                store.begin(events[i], "com.example.Terminal", t0);
                if (const auto turn = store.peek(events[i].promptId)) {
                    EXPECT_EQ(turn->promptId, events[i].promptId);
                }
                close(i);
            }
            ownersDone.fetch_add(1);
        });
    }
    for (int t = 0; t < thieves; ++t) {
        threads.emplace_back([&, t] {
            while (ownersDone.load() < owners)
                for (int i = t; i < total; i += thieves)
                    close(i);
        });
    }
    threads.emplace_back([&] {
        while (ownersDone.load() < owners) {
            swept.fetch_add(store.sweep(t0 + 60s));
            EXPECT_LE(store.openCount(), static_cast<std::size_t>(owners));
        }
    });
    for (auto& thread : threads)
        thread.join();

    int finished = 0;
    for (int i = 0; i < total; ++i) {
        EXPECT_LE(endings[i].load(), 1) << i;
        finished += endings[i].load();
    }
    EXPECT_EQ(store.openCount(), 0u);
    EXPECT_EQ(static_cast<std::size_t>(finished) + swept.load(), static_cast<std::size_t>(total));
}

} // namespace
} // namespace norrow
