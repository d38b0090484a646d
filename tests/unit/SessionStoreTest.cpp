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

TEST(SessionStore, ATurnLivesFromItsLatestPromptToItsStop) {
    SessionStore store;
    EXPECT_FALSE(store.begin(prompt(std::nullopt), "x", t0));
    store.begin(prompt("p1", "first"), "com.example.A", t0 - 60s);
    EXPECT_TRUE(store.begin(prompt("p1"), "com.example.Terminal", t0));
    const SessionStore::OpenTurn expected{"p1",     "s", "/work/app",
                                          "fix it", t0,  "com.example.Terminal"};
    EXPECT_EQ(store.peek("p1"), expected);
    EXPECT_EQ(store.openCount(), 1u);
    EXPECT_FALSE(store.peek(std::nullopt));
    EXPECT_FALSE(store.finish(prompt("other"), t0 + 1s));
    EXPECT_FALSE(store.finish(prompt(std::nullopt), t0 + 1s));

    const auto finished = store.finish(prompt("p1"), t0 + 125500ms);
    ASSERT_TRUE(finished);
    EXPECT_EQ(finished->turn, expected);
    EXPECT_DOUBLE_EQ(finished->duration.count(), 125.5);
    EXPECT_FALSE(store.finish(prompt("p1"), t0 + 200s));

    store.begin(prompt("p2"), std::nullopt, t0);
    // A session's new prompt supersedes its turn that never ended; others' stay.
    store.begin(prompt("p3", "other"), std::nullopt, t0);
    store.begin(prompt("p4", "other"), std::nullopt, t0);
    EXPECT_FALSE(store.peek("p3"));
    EXPECT_TRUE(store.restart("p4", "com.example.B", t0 + 5s));
    EXPECT_FALSE(store.restart("p3", "com.example.B", t0 + 5s));
    EXPECT_EQ(store.finish(prompt("p4", "other"), t0 + 6s)->turn.frontmostAtStart, "com.example.B");
    EXPECT_DOUBLE_EQ(store.finish(prompt("p2"), t0 - 2500ms)->duration.count(),
                     -2.5); // clock set back
    EXPECT_EQ(store.openCount(), 0u);
}

TEST(SessionStore, SweepDropsTurnsAtLeastStaleAfterOld) {
    const std::pair<std::chrono::nanoseconds, bool> ages[] = {
        {21600s, false}, {21600s - 1ms, true}, {30000s, false}, {0s, true}, {-5s, true}};
    SessionStore store;
    for (const auto& [age, kept] : ages)
        store.begin(prompt(std::to_string(age.count()), std::to_string(age.count())), std::nullopt,
                    t0 - age);
    EXPECT_EQ(store.sweep(t0), 2u);
    for (const auto& [age, kept] : ages)
        EXPECT_EQ(store.peek(std::to_string(age.count())).has_value(), kept);
}

// Every thread opens its share of the turns and tries to close each turn just after it opened,
// while one also keeps sweeping: each turn must end up closed, swept or open, exactly once.
TEST(SessionStore, ConcurrentUseNeitherLosesNorDuplicatesTurns) {
    constexpr int workers = 6, total = 8000;
    SessionStore store(60s);
    std::vector<HookEvent> events;
    for (int i = 0; i < total; ++i)
        events.push_back(prompt("p" + std::to_string(i), "s" + std::to_string(i)));
    std::vector<std::atomic<int>> endings(total);
    std::atomic<std::size_t> swept = 0;
    std::atomic<bool> go = false;
    std::vector<std::thread> threads;
    for (int w = 0; w < workers; ++w) {
        threads.emplace_back([&, w] {
            while (!go.load()) {
            }
            for (int i = 0; i < total; ++i) {
                if (i % workers == w) store.begin(events[i], "com.example.Terminal", t0);
                const int j = (i + total - w) % total; // all try each turn at about once
                if (const auto turn = store.peek(events[j].promptId)) {
                    EXPECT_EQ(turn->promptId, events[j].promptId);
                }
                if (store.finish(events[j], t0 + 1s)) endings[j].fetch_add(1);
                if (w == 0) swept.fetch_add(store.sweep(t0 + 60s));
            }
        });
    }
    go.store(true);
    for (auto& thread : threads)
        thread.join();

    std::size_t finished = 0;
    for (int i = 0; i < total; ++i) {
        EXPECT_LE(endings[i].load(), 1) << i;
        finished += static_cast<std::size_t>(endings[i].load());
    }
    EXPECT_EQ(finished + swept.load() + store.openCount(), static_cast<std::size_t>(total));
}

} // namespace
} // namespace norrow
