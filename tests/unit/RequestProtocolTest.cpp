#include "core/RequestProtocol.h"

#include <gtest/gtest.h>

namespace norrow {
namespace {

constexpr const char* kToken = "s3cret-token";

std::string request(const std::string& line, const std::string& headers, const std::string& body) {
    return line + "\r\n" + headers + "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" +
           body;
}

std::string eventRequest(const std::string& body = R"({"hook_event_name":"Stop"})",
                         const std::string& auth = std::string("Bearer ") + kToken,
                         const std::string& line = "POST /v1/event HTTP/1.1") {
    return request(line, "Authorization: " + auth + "\r\n", body);
}

// The reply the listener gives to these bytes, if they form a whole request.
std::optional<RequestProtocol::Reply> replyTo(const std::string& bytes) {
    const auto result = RequestProtocol::parse(bytes);
    if (const auto* bad = std::get_if<RequestProtocol::Bad>(&result))
        return RequestProtocol::Reply{400, bad->message};
    if (const auto* ok = std::get_if<RequestProtocol::Request>(&result))
        return RequestProtocol::dispatch(*ok, kToken).reply;
    return std::nullopt;
}

TEST(RequestProtocol, RepliesTable) {
    struct Case {
        std::string name;
        std::string bytes;
        int status;
        std::string body;
    };
    const std::string huge(16'385, 'a');
    const Case cases[] = {
        {"accepted", eventRequest(), 200, "ok"},
        {"lower-case method",
         eventRequest(R"({"hook_event_name":"Stop"})", std::string("Bearer ") + kToken,
                      "post /v1/event HTTP/1.1"),
         200, "ok"},
        {"runs of spaces",
         eventRequest(R"({"hook_event_name":"Stop"})", std::string("Bearer ") + kToken,
                      "POST  /v1/event"),
         200, "ok"},
        {"lower-case scheme",
         eventRequest(R"({"hook_event_name":"Stop"})", std::string("bearer ") + kToken), 200, "ok"},
        {"mistyped optional field", eventRequest(R"({"hook_event_name":"Stop","cwd":1})"), 200,
         "ok"},
        {"headers too large", huge, 400, "headers too large"},
        {"headers not utf-8", "POST /v1/event\r\nX: \xff\r\n\r\n", 400, "headers not utf-8"},
        {"empty request", "\r\n\r\n", 400, "empty request"},
        {"malformed request line", "POST\r\n\r\n", 400, "malformed request line"},
        {"negative length", "POST /v1/event\r\nContent-Length: -1\r\n\r\n", 400,
         "bad content-length"},
        {"length too large", "POST /v1/event\r\nContent-Length: 1048577\r\n\r\n", 400,
         "bad content-length"},
        {"wrong method",
         eventRequest(R"({"hook_event_name":"Stop"})", std::string("Bearer ") + kToken,
                      "GET /v1/event HTTP/1.1"),
         404, "not found"},
        {"query string",
         eventRequest(R"({"hook_event_name":"Stop"})", std::string("Bearer ") + kToken,
                      "POST /v1/event?x=1 HTTP/1.1"),
         404, "not found"},
        {"wrong path and token", eventRequest("{}", "Bearer nope", "POST /v1/events"), 404,
         "not found"},
        {"missing token", request("POST /v1/event", "", R"({"hook_event_name":"Stop"})"), 401,
         "unauthorized"},
        {"scheme alone", eventRequest(R"({"hook_event_name":"Stop"})", "Bearer"), 401,
         "unauthorized"},
        {"token in other case",
         eventRequest(R"({"hook_event_name":"Stop"})", "Bearer S3CRET-TOKEN"), 401, "unauthorized"},
        {"two spaces",
         eventRequest(R"({"hook_event_name":"Stop"})", std::string("Bearer  ") + kToken), 401,
         "unauthorized"},
        {"token prefix", eventRequest(R"({"hook_event_name":"Stop"})", "Bearer s3cret"), 401,
         "unauthorized"},
        {"basic scheme",
         eventRequest(R"({"hook_event_name":"Stop"})", std::string("Basic ") + kToken), 401,
         "unauthorized"},
        {"wrong token and bad body", eventRequest("nonsense", "Bearer nope"), 401, "unauthorized"},
        {"unknown hook", eventRequest(R"({"hook_event_name":"PreToolUse"})"), 422,
         "undecodable event"},
        {"not json", eventRequest("nonsense"), 422, "undecodable event"},
        {"non-numeric length means no body",
         "POST /v1/event\r\nAuthorization: Bearer s3cret-token\r\nContent-Length: abc\r\n\r\n{}",
         422, "undecodable event"},
    };
    for (const auto& c : cases) {
        const auto reply = replyTo(c.bytes);
        ASSERT_TRUE(reply) << c.name;
        EXPECT_EQ(reply->status, c.status) << c.name;
        EXPECT_EQ(reply->body, c.body) << c.name;
    }
}

TEST(RequestProtocol, WaitsForTheWholeRequest) {
    const std::string whole = eventRequest();
    for (std::size_t cut = 0; cut < whole.size(); ++cut)
        EXPECT_TRUE(std::holds_alternative<RequestProtocol::NeedMoreData>(
            RequestProtocol::parse(whole.substr(0, cut))))
            << cut;
    EXPECT_TRUE(std::holds_alternative<RequestProtocol::NeedMoreData>(
        RequestProtocol::parse(std::string(16'384, 'a'))));
}

TEST(RequestProtocol, HeaderRules) {
    const std::string bytes = "POST /v1/event HTTP/1.1\r\nno colon here\r\n  X-Name :\tvalue  \r\n"
                              "Content-Length: 2\r\ncontent-length: 4\r\n\r\nabcdEXTRA";
    const auto result = RequestProtocol::parse(bytes);
    const auto* ok = std::get_if<RequestProtocol::Request>(&result);
    ASSERT_TRUE(ok);
    EXPECT_EQ(ok->headers.at("x-name"), "value");
    EXPECT_EQ(ok->body, "abcd");
    EXPECT_EQ(ok->headers.count("no colon here"), 0u);
}

TEST(RequestProtocol, LargestBodyIsAccepted) {
    const std::string body(1'048'576, ' ');
    const auto result =
        RequestProtocol::parse("POST /v1/event\r\nContent-Length: 1048576\r\n\r\n" + body);
    ASSERT_TRUE(std::holds_alternative<RequestProtocol::Request>(result));
    EXPECT_EQ(std::get<RequestProtocol::Request>(result).body.size(), body.size());
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
