#include "core/RequestProtocol.h"

#include "core/PermissionAnswer.h"
#include "core/Unicode.h"

#include <charconv>
#include <cstdint>
#include <vector>

namespace norrow::RequestProtocol {
namespace {

constexpr std::string_view kTerminator = "\r\n\r\n";

std::string_view trimSpacesAndTabs(std::string_view s) {
    while (!s.empty() && (s.front() == ' ' || s.front() == '\t'))
        s.remove_prefix(1);
    while (!s.empty() && (s.back() == ' ' || s.back() == '\t'))
        s.remove_suffix(1);
    return s;
}

std::vector<std::string_view> splitLines(std::string_view block) {
    std::vector<std::string_view> lines;
    std::size_t start = 0;
    for (;;) {
        const std::size_t end = block.find("\r\n", start);
        if (end == std::string_view::npos) {
            lines.push_back(block.substr(start));
            return lines;
        }
        lines.push_back(block.substr(start, end - start));
        start = end + 2;
    }
}

// A base-10 integer with an optional sign and nothing else; absent on any other text or
// on overflow.
std::optional<std::int64_t> parseInteger(std::string_view s) {
    bool negative = false;
    if (!s.empty() && (s.front() == '+' || s.front() == '-')) {
        negative = s.front() == '-';
        s.remove_prefix(1);
    }
    if (s.empty()) return std::nullopt;
    std::uint64_t magnitude = 0;
    const auto [end, error] = std::from_chars(s.data(), s.data() + s.size(), magnitude);
    if (error != std::errc() || end != s.data() + s.size()) return std::nullopt;
    if (negative) {
        if (magnitude > static_cast<std::uint64_t>(INT64_MAX) + 1) return std::nullopt;
        return static_cast<std::int64_t>(0 - magnitude);
    }
    if (magnitude > static_cast<std::uint64_t>(INT64_MAX)) return std::nullopt;
    return static_cast<std::int64_t>(magnitude);
}

} // namespace

ParseResult parse(std::string_view data) {
    const std::size_t terminator = data.find(kTerminator);
    if (terminator == std::string_view::npos) {
        if (data.size() > maxHeaderBytes) return Bad{"headers too large"};
        return NeedMoreData{};
    }
    const std::string_view block = data.substr(0, terminator);
    if (!unicode::isValidUtf8(block)) return Bad{"headers not utf-8"};
    if (block.empty()) return Bad{"empty request"};
    const std::vector<std::string_view> lines = splitLines(block);

    std::vector<std::string_view> parts;
    std::string_view requestLine = lines.front();
    while (!requestLine.empty()) {
        const std::size_t space = requestLine.find(' ');
        const std::string_view piece = requestLine.substr(0, space);
        if (!piece.empty()) parts.push_back(piece);
        if (space == std::string_view::npos) break;
        requestLine.remove_prefix(space + 1);
    }
    if (parts.size() < 2) return Bad{"malformed request line"};

    Request request;
    request.method = unicode::uppercased(parts[0]);
    request.path = std::string(parts[1]);
    for (std::size_t i = 1; i < lines.size(); ++i) {
        const std::string_view line = lines[i];
        const std::size_t colon = line.find(':');
        if (line.empty() || colon == std::string_view::npos) continue;
        std::string name = unicode::lowercased(trimSpacesAndTabs(line.substr(0, colon)));
        request.headers[std::move(name)] = std::string(trimSpacesAndTabs(line.substr(colon + 1)));
    }

    std::size_t length = 0;
    if (const auto it = request.headers.find("content-length");
        it != request.headers.end() && !it->second.empty()) {
        // A Content-Length that is not a number means an empty body, not an error.
        if (const auto value = parseInteger(it->second)) {
            if (*value < 0 || *value > static_cast<std::int64_t>(maxContentLength))
                return Bad{"bad content-length"};
            length = static_cast<std::size_t>(*value);
        }
    }
    const std::size_t bodyStart = terminator + kTerminator.size();
    if (data.size() - bodyStart < length) return NeedMoreData{std::move(request)};
    request.body = std::string(data.substr(bodyStart, length));
    return request;
}

std::optional<std::string> Request::bearerToken() const {
    const auto it = headers.find("authorization");
    if (it == headers.end()) return std::nullopt;
    const std::string& value = it->second;
    const std::size_t space = value.find(' ');
    if (space == std::string::npos) return std::nullopt;
    if (unicode::lowercased(std::string_view(value).substr(0, space)) != "bearer")
        return std::nullopt;
    return value.substr(space + 1);
}

bool constantTimeEquals(std::string_view a, std::string_view b) {
    std::size_t accumulator = a.size() ^ b.size();
    const std::size_t longer = a.size() > b.size() ? a.size() : b.size();
    for (std::size_t i = 0; i < longer; ++i) {
        const auto x = i < a.size() ? static_cast<unsigned char>(a[i]) : 0u;
        const auto y = i < b.size() ? static_cast<unsigned char>(b[i]) : 0u;
        accumulator |= x ^ y;
    }
    return accumulator == 0;
}

std::optional<Reply> refusal(const Request& request, std::string_view token) {
    if (request.method != "POST" || (request.path != eventPath && request.path != permissionPath))
        return Reply{404, "not found"};
    const auto presented = request.bearerToken();
    if (!presented || !constantTimeEquals(*presented, token)) return Reply{401, "unauthorized"};
    return std::nullopt;
}

Decision dispatch(const Request& request, std::string_view token) {
    if (auto refused = refusal(request, token)) return {std::move(*refused), {}, false};
    auto event = HookEvent::decode(request.body);
    if (!event) return {{422, "undecodable event"}, {}, false};
    // A bridge waiting for an answer prints the body it gets: none unless it is the answer.
    if (request.path == permissionPath) {
        const bool offered = PermissionAnswer::offered(*event);
        return {{200, ""}, std::move(event), offered};
    }
    return {{200, "ok"}, std::move(event), false};
}

std::optional<Decision> answer(std::string_view received, std::string_view token,
                               bool peerFinished) {
    if (received.size() > maxRequestBytes) return Decision{{413, "payload too large"}, {}, false};
    auto result = parse(received);
    if (auto* bad = std::get_if<Bad>(&result))
        return Decision{{400, std::move(bad->message)}, {}, false};
    if (const auto* request = std::get_if<Request>(&result)) return dispatch(*request, token);
    if (const auto& head = std::get<NeedMoreData>(result).head)
        if (auto refused = refusal(*head, token)) return Decision{std::move(*refused), {}, false};
    if (peerFinished) return Decision{{400, "incomplete request"}, {}, false};
    return std::nullopt;
}

std::string_view Reply::reasonPhrase(int status) {
    switch (status) {
    case 200:
        return "OK";
    case 400:
        return "Bad Request";
    case 401:
        return "Unauthorized";
    case 404:
        return "Not Found";
    case 413:
        return "Payload Too Large";
    case 422:
        return "Unprocessable Entity";
    default:
        return "Error";
    }
}

std::string Reply::bytes() const {
    std::string out = "HTTP/1.1 ";
    out += std::to_string(status);
    out += ' ';
    out += reasonPhrase(status);
    out += "\r\nContent-Type: text/plain; charset=utf-8\r\nContent-Length: ";
    out += std::to_string(body.size());
    out += "\r\nConnection: close\r\n\r\n";
    out += body;
    return out;
}

} // namespace norrow::RequestProtocol
