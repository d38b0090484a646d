#include "app/shared/UpdateCheck.h"

#include <gtest/gtest.h>
#include <utility>

namespace norrow {
namespace {

using namespace std::chrono_literals;

// Keeps the request until the test answers it.
struct FakeTransport final : UpdateCheck::Transport {
    std::vector<std::pair<QUrl, double>> requests;
    std::function<void(const QByteArray&)> completion;

    void get(const QUrl& url, Seconds timeout,
             std::function<void(const QByteArray&)> then) override {
        requests.emplace_back(url, timeout.count());
        completion = std::move(then);
    }
    void answer(const QByteArray& body) { std::exchange(completion, nullptr)(body); }
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
    EXPECT_EQ(transport->requests,
              (std::vector{std::pair(QUrl("https://norrow.qelvane.com/api/latest"), 10.0)}));

    now += 3s;
    transport->answer({});
    EXPECT_EQ(check.lastChecked(), now);
    EXPECT_FALSE(check.inFlight());

    now += 21600s - 1ms;
    run();
    EXPECT_EQ(transport->requests.size(), 1u);
    run(true);
    EXPECT_EQ(transport->requests.size(), 2u);
    transport->answer({});
    now += 21600s;
    run();
    EXPECT_EQ(transport->requests.size(), 3u);

    auto* unused = new FakeTransport;
    UpdateCheck development(std::unique_ptr<UpdateCheck::Transport>(unused), "dev");
    development.run(true, [] {});
    EXPECT_TRUE(unused->requests.empty()) << "a development build never checks";
}

TEST_F(UpdateCheckRun, ReportsAChangeOnlyWhenTheAvailableVersionChanges) {
    using Release = UpdateCheck::Release;
    const QUrl download("https://example.org/download"), mirror("https://example.org/mirror");
    const std::tuple<QByteArray, std::optional<Release>, int> steps[] = {
        {{}, {}, 0},
        {release("1.5.0"), Release{"1.5.0", download}, 1},
        {release("1.5.0", "https://example.org/mirror"), Release{"1.5.0", mirror}, 0},
        {release("1.6.0"), Release{"1.6.0", download}, 1},
        {"<html>busy</html>", {}, 1},
        {{}, {}, 0},
    };
    for (const auto& [body, available, changed] : steps) {
        const int before = changes;
        run(true);
        transport->answer(body);
        EXPECT_EQ(check.available(), available) << body.toStdString();
        EXPECT_EQ(changes - before, changed) << body.toStdString();
    }
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
