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
struct NeedMoreData {};
using ParseResult = std::variant<Bad, Request, NeedMoreData>;

struct Reply {
    int status = 200;
    std::string body;

    // The whole response, byte for byte.
    std::string bytes() const;
    static std::string_view reasonPhrase(int status);
};

// The answer to one complete request, and the event to deliver after it.
struct Decision {
    Reply reply;
    std::optional<HookEvent> event;
};

ParseResult parse(std::string_view data);
Decision dispatch(const Request& request, std::string_view token);
// Compares without an early exit, so timing does not reveal a matching prefix.
bool constantTimeEquals(std::string_view a, std::string_view b);

inline Reply incompleteRequest() {
    return {400, "incomplete request"};
}
inline Reply payloadTooLarge() {
    return {413, "payload too large"};
}

} // namespace norrow::RequestProtocol
