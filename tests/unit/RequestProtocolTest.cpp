#include "core/RequestProtocol.h"

#include <gtest/gtest.h>
#include <optional>

namespace norrow {
namespace {

constexpr const char* kToken = "s3cret-token";
constexpr const char* kStop = R"({"hook_event_name":"Stop"})";

std::string request(const std::string& auth = std::string("Bearer ") + kToken,
                    const std::string& body = kStop,
                    const std::string& line = "POST /v1/event HTTP/1.1") {
    const std::string header = auth.empty() ? "" : "Authorization: " + auth + "\r\n";
    return line + "\r\n" + header + "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" +
           body;
}

std::string withLine(const std::string& line) {
    return request(std::string("Bearer ") + kToken, kStop, line);
}

TEST(RequestProtocol, RepliesTable) {
    const std::pair<std::string, RequestProtocol::Reply> cases[] = {
        {request(), {200, "ok"}},
        {withLine("post /v1/event HTTP/1.1"), {200, "ok"}},
        {withLine("POST  /v1/event"), {200, "ok"}},
        {request(std::string("bearer ") + kToken), {200, "ok"}},
        {request(std::string("Bearer ") + kToken, R"({"hook_event_name":"Stop","cwd":1})"),
         {200, "ok"}},
        {std::string(16'385, 'a'), {400, "headers too large"}},
        {"POST /v1/event\r\nX: \xff\r\n\r\n", {400, "headers not utf-8"}},
        {"\r\n\r\n", {400, "empty request"}},
        {"POST\r\n\r\n", {400, "malformed request line"}},
        {"POST /v1/event\r\nContent-Length: -1\r\n\r\n", {400, "bad content-length"}},
        {"POST /v1/event\r\nContent-Length: 1048577\r\n\r\n", {400, "bad content-length"}},
        {withLine("GET /v1/event HTTP/1.1"), {404, "not found"}},
        {withLine("POST /v1/event?x=1 HTTP/1.1"), {404, "not found"}},
        {request("Bearer nope", "{}", "POST /v1/events"), {404, "not found"}},
        {request(""), {401, "unauthorized"}},
        {request("Bearer"), {401, "unauthorized"}},
        {request("Bearer S3CRET-TOKEN"), {401, "unauthorized"}},
        {request(std::string("Bearer  ") + kToken), {401, "unauthorized"}},
        {request("Bearer s3cret"), {401, "unauthorized"}},
        {request(std::string("Basic ") + kToken), {401, "unauthorized"}},
        {request("Bearer nope", "nonsense"), {401, "unauthorized"}},
        {request(std::string("Bearer ") + kToken, R"({"hook_event_name":"PreToolUse"})"),
         {422, "undecodable event"}},
        {request(std::string("Bearer ") + kToken, "nonsense"), {422, "undecodable event"}},
        {request(std::string("Bearer ") + kToken, std::string(kStop) + '\0' + "tail"),
         {422, "undecodable event"}},
        {"POST /v1/event\r\nAuthorization: Bearer s3cret-token\r\nContent-Length: abc\r\n\r\n{}",
         {422, "undecodable event"}},
    };
    for (const auto& [bytes, expected] : cases) {
        const auto result = RequestProtocol::parse(bytes);
        RequestProtocol::Reply reply{0, "needs more data"};
        if (const auto* bad = std::get_if<RequestProtocol::Bad>(&result))
            reply = {400, bad->message};
        if (const auto* ok = std::get_if<RequestProtocol::Request>(&result))
            reply = RequestProtocol::dispatch(*ok, kToken).reply;
        EXPECT_EQ(reply.status, expected.status) << bytes.substr(0, 200);
        EXPECT_EQ(reply.body, expected.body) << bytes.substr(0, 200);
    }
}

TEST(RequestProtocol, WaitsForTheWholeRequest) {
    const std::string whole = request();
    for (std::size_t cut = 0; cut < whole.size(); ++cut)
        EXPECT_TRUE(std::holds_alternative<RequestProtocol::NeedMoreData>(
            RequestProtocol::parse(whole.substr(0, cut))))
            << cut;
    EXPECT_TRUE(std::holds_alternative<RequestProtocol::NeedMoreData>(
        RequestProtocol::parse(std::string(16'384, 'a'))));
}

// A body is awaited only for a request that would be accepted; anything else is answered
// as soon as its header block is in.
TEST(RequestProtocol, AnswersBeforeTheBodyUnlessTheRequestWouldBeAccepted) {
    const std::string partial = "Content-Length: 1048576\r\n\r\n{\"hook_";
    const std::string authorized = std::string("Authorization: Bearer ") + kToken + "\r\n";
    const struct {
        std::string received;
        bool peerFinished;
        std::optional<RequestProtocol::Reply> expected;
    } cases[] = {
        {"POST /v1/event HTTP/1.1\r\n" + partial, false,
         RequestProtocol::Reply{401, "unauthorized"}},
        {"POST /v1/event HTTP/1.1\r\nAuthorization: Bearer nope\r\n" + partial, false,
         RequestProtocol::Reply{401, "unauthorized"}},
        {"POST /v1/other HTTP/1.1\r\n" + authorized + partial, false,
         RequestProtocol::Reply{404, "not found"}},
        {"POST /v1/event HTTP/1.1\r\n" + authorized + partial, false, std::nullopt},
        {"POST /v1/event HTTP/1.1\r\n" + authorized + partial, true,
         RequestProtocol::Reply{400, "incomplete request"}},
        {"POST /v1/event HTTP/1.1\r\nAuthoriz", false, std::nullopt},
        {"POST /v1/event HTTP/1.1\r\nAuthoriz", true,
         RequestProtocol::Reply{400, "incomplete request"}},
        {request() + std::string(RequestProtocol::maxRequestBytes, ' '), false,
         RequestProtocol::Reply{413, "payload too large"}},
        {request(), false, RequestProtocol::Reply{200, "ok"}},
    };
    for (const auto& c : cases) {
        const auto decision = RequestProtocol::answer(c.received, kToken, c.peerFinished);
        ASSERT_EQ(decision.has_value(), c.expected.has_value()) << c.received.substr(0, 80);
        if (!decision) continue;
        EXPECT_EQ(decision->reply.status, c.expected->status) << c.received.substr(0, 80);
        EXPECT_EQ(decision->reply.body, c.expected->body) << c.received.substr(0, 80);
        EXPECT_EQ(decision->event.has_value(), c.expected->status == 200);
    }
}

TEST(RequestProtocol, HeaderRulesAndLargestBody) {
    const auto result =
        RequestProtocol::parse("POST /v1/event HTTP/1.1\r\nno colon here\r\n  X-Name :\tvalue  \r\n"
                               "Content-Length: 2\r\ncontent-length: 4\r\n\r\nabcdEXTRA");
    const auto* ok = std::get_if<RequestProtocol::Request>(&result);
    ASSERT_TRUE(ok);
    EXPECT_EQ(ok->headers.at("x-name"), "value");
    EXPECT_EQ(ok->body, "abcd");
    EXPECT_EQ(ok->headers.count("no colon here"), 0u);

    const std::string body(1'048'576, ' ');
    const auto largest =
        RequestProtocol::parse("POST /v1/event\r\nContent-Length: 1048576\r\n\r\n" + body);
    ASSERT_TRUE(std::holds_alternative<RequestProtocol::Request>(largest));
    EXPECT_EQ(std::get<RequestProtocol::Request>(largest).body.size(), body.size());
}

TEST(RequestProtocol, ConstantTimeEquals) {
    EXPECT_TRUE(RequestProtocol::constantTimeEquals("", ""));
    EXPECT_TRUE(RequestProtocol::constantTimeEquals("abc", "abc"));
    EXPECT_FALSE(RequestProtocol::constantTimeEquals("abc", "abcd"));
    EXPECT_FALSE(RequestProtocol::constantTimeEquals("abcd", "abc"));
    EXPECT_FALSE(RequestProtocol::constantTimeEquals("abc", "abC"));
    EXPECT_FALSE(RequestProtocol::constantTimeEquals(std::string("a\0", 2), "a"));
}

TEST(RequestProtocol, ReplyBytes) {
    EXPECT_EQ((RequestProtocol::Reply{200, "ok"}.bytes()),
              "HTTP/1.1 200 OK\r\nContent-Type: text/plain; charset=utf-8\r\nContent-Length: 2\r\n"
              "Connection: close\r\n\r\nok");
    EXPECT_EQ((RequestProtocol::Reply{413, "payload too large"}.bytes()),
              "HTTP/1.1 413 Payload Too Large\r\nContent-Type: text/plain; charset=utf-8\r\n"
              "Content-Length: 17\r\nConnection: close\r\n\r\npayload too large");
    EXPECT_EQ(RequestProtocol::Reply::reasonPhrase(500), "Error");
}

} // namespace
} // namespace norrow
