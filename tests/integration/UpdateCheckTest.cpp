#include "app/shared/UpdateCheck.h"

#include <deque>
#include <gtest/gtest.h>

namespace norrow {
namespace {

using namespace std::chrono_literals;

// Keeps every request until the test answers it.
class FakeTransport final : public UpdateCheck::Transport {
public:
    struct Request {
        QUrl url;
        double timeout;
        std::function<void(const QByteArray&)> completion;
    };
    std::deque<Request> pending;
    int started = 0;

    void get(const QUrl& url, double timeout,
             std::function<void(const QByteArray&)> completion) override {
        ++started;
        pending.push_back({url, timeout, std::move(completion)});
    }
    void answer(const QByteArray& body) {
        auto request = std::move(pending.front());
        pending.pop_front();
        request.completion(body);
    }
};

QByteArray release(const char* version, const char* url = "https://example.org/download") {
    return QByteArray("{\"version\":\"") + version + "\",\"url\":\"" + url + "\"}";
}

class UpdateCheckRun : public ::testing::Test {
protected:
    UpdateCheck::TimePoint now = UpdateCheck::TimePoint{} + 1'800'000'000s;
    FakeTransport* transport = new FakeTransport;
    UpdateCheck check{std::unique_ptr<UpdateCheck::Transport>(transport), "1.4.0",
                      [this] { return now; }};
    int changes = 0;

    void run(bool force = false) {
        check.run(force, [this] { ++changes; });
    }
};

TEST_F(UpdateCheckRun, AsksOnceAtATimeAndThrottlesForSixHoursEvenAfterAFailure) {
    run();
    run(true);
    ASSERT_EQ(transport->started, 1);
    EXPECT_EQ(transport->pending.front().url, QUrl("https://norrow.qelvane.com/api/latest"));
    EXPECT_EQ(transport->pending.front().timeout, 10);

    now += 3s;
    transport->answer({});
    const auto checked = now;
    EXPECT_EQ(check.lastChecked(), checked);
    EXPECT_FALSE(check.inFlight());

    now = checked + 1min;
    run();
    now = checked + 21600s - 1ms;
    run();
    EXPECT_EQ(transport->started, 1);
    run(true);
    EXPECT_EQ(transport->started, 2);
    transport->answer({});
    now += 21600s;
    run();
    EXPECT_EQ(transport->started, 3);
}

TEST_F(UpdateCheckRun, ReportsAChangeOnlyWhenTheAvailableVersionChanges) {
    const std::tuple<QByteArray, std::optional<std::string>, int> steps[] = {
        {{}, std::nullopt, 0},
        {release("1.5.0"), "1.5.0", 1},
        {release("1.5.0", "https://example.org/mirror"), "1.5.0", 0},
        {"<html>busy</html>", std::nullopt, 1},
        {{}, std::nullopt, 0},
        {release("1.6.0"), "1.6.0", 1},
        {release("1.7.0"), "1.7.0", 1},
        {release("1.4.0"), std::nullopt, 1},
    };
    for (const auto& [body, available, changed] : steps) {
        const int before = changes;
        run(true);
        transport->answer(body);
        EXPECT_EQ(check.available() ? std::optional(check.available()->version) : std::nullopt,
                  available)
            << body.toStdString();
        EXPECT_EQ(changes - before, changed) << body.toStdString();
        if (body.contains("mirror")) {
            EXPECT_EQ(check.available()->url, QUrl("https://example.org/mirror"));
        }
    }
}

TEST(UpdateCheck, DevelopmentBuildsNeverCheck) {
    auto* transport = new FakeTransport;
    UpdateCheck check(std::unique_ptr<UpdateCheck::Transport>(transport), "dev");
    check.run(true, [] {});
    EXPECT_EQ(transport->started, 0);
}

TEST(UpdateCheck, ParseAcceptsOnlyANewerReleaseWithAUsableLink) {
    const std::pair<QByteArray, bool> cases[] = {
        {R"({"version":"2","url":"https://x.org/d","notes":[1,2]})", true},
        {release("1.4.0"), false},
        {release("1.5.0-beta"), false},
        {release("1.5.0", ""), false},
        {release("1.5.0", "https://x.org/a b"), false},
        {R"({"version":1.5,"url":"https://x.org/d"})", false},
        {R"({"version":"1.5.0","url":7})", false},
        {R"({"version":"1.5.0"})", false},
        {R"([{"version":"1.5.0","url":"https://x.org/d"}])", false},
        {R"({"version":"1.5.0","url":"https://x.org/d"} trailing)", false},
    };
    for (const auto& [body, found] : cases)
        EXPECT_EQ(UpdateCheck::parse(body, "1.4.0").has_value(), found) << body.toStdString();
    EXPECT_FALSE(UpdateCheck::parse(release("1.5.0"), "dev"));
    EXPECT_EQ((UpdateCheck::Release{"1.5.0", QUrl("https://x.org")}).menuTitle(),
              "\xE2\xAC\x86\xEF\xB8\x8E  Version 1.5.0 is out \xE2\x80\x94 download it");
}

} // namespace
} // namespace norrow
