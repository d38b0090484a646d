#include "core/TerminalActivator.h"

#include "core/KnownEditors.h"

namespace norrow::TerminalActivator {
namespace {

// The characters a URL path may hold as they are, less "?" and "#".
bool keptInPath(unsigned char c) {
    if ((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9')) return true;
    return std::string_view("!$&'()*+,-./:;=@_~").find(static_cast<char>(c)) !=
           std::string_view::npos;
}

std::string percentEncoded(std::string_view path) {
    static constexpr char hex[] = "0123456789ABCDEF";
    std::string out;
    out.reserve(path.size());
    for (const char ch : path) {
        const auto c = static_cast<unsigned char>(ch);
        if (keptInPath(c)) {
            out += ch;
        } else {
            out += '%';
            out += hex[c >> 4];
            out += hex[c & 0xF];
        }
    }
    return out;
}

} // namespace

std::optional<std::string> revealURL(std::string_view folder,
                                     const std::optional<std::string>& host) {
    if (!host) return std::nullopt;
    const auto scheme = editors::revealScheme(*host);
    if (!scheme) return std::nullopt;
    return std::string(*scheme) + "://file" + percentEncoded(folder);
}

} // namespace norrow::TerminalActivator
