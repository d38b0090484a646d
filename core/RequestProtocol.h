#pragma once

#include "core/HookEvent.h"

#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

// The small HTTP/1.1 subset the bridge speaks: one request per connection, one plain-text
// reply. Pure functions, so the exchange can be checked without any network.
namespace norrow::RequestProtocol {

inline constexpr std::size_t maxHeaderBytes = 16'384;
inline constexpr std::size_t maxContentLength = 1'048'576;
inline constexpr std::size_t maxRequestBytes = maxContentLength + maxHeaderBytes;
inline constexpr std::size_t maxReadBytes = 65'536;

struct Request {
    std::string method;
    std::string path;
    std::map<std::string, std::string> headers;
    std::string body;

    // The token of an "Authorization: Bearer <token>" header, when there is one.
    std::optional<std::string> bearerToken() const;
};

// What the bytes received so far amount to.
struct Bad {
    std::string message;
};
struct NeedMoreData {
    // The request without its body, once the header block is complete.
    std::optional<Request> head;
};
using ParseResult = std::variant<Bad, Request, NeedMoreData>;

struct Reply {
    int status = 200;
    std::string body;

    // The whole response, byte for byte.
    std::string bytes() const;
    static std::string_view reasonPhrase(int status);
};

// Where the bridge posts events, and where it posts a permission request that it waits on
// for the user's answer: the reply's body is then the hook's output, or empty.
inline constexpr std::string_view eventPath = "/v1/event";
inline constexpr std::string_view permissionPath = "/v1/permission";

// The answer to one complete request, and the event to deliver after it.
struct Decision {
    Reply reply;
    std::optional<HookEvent> event;
    // The sender waits for the user's answer to the event, a permission request Norrow may
    // answer, instead of taking `reply` at once.
    bool awaitsAnswer = false;
};

ParseResult parse(std::string_view data);
// The reply to a request whose method, path or token is wrong; none when they are right.
// Needs no body, so a request can be refused before its body is read.
std::optional<Reply> refusal(const Request& request, std::string_view token);
Decision dispatch(const Request& request, std::string_view token);
// Compares without an early exit, so timing does not reveal a matching prefix.
bool constantTimeEquals(std::string_view a, std::string_view b);

// What one connection gets for the bytes it has sent so far (`peerFinished`: it has ended
// its sending side), or none while more must be read. A body is only ever awaited for a
// request that would be accepted, so a client without the token cannot make the listener
// hold its body.
std::optional<Decision> answer(std::string_view received, std::string_view token,
                               bool peerFinished);

} // namespace norrow::RequestProtocol
