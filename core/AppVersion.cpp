#include "core/AppVersion.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <vector>

#ifndef NORROW_VERSION
#define NORROW_VERSION ""
#endif

namespace norrow::AppVersion {
namespace {

// The dot-separated non-negative integers of a version, or absent when unreadable.
std::optional<std::vector<unsigned long long>> numbers(std::string_view version) {
    std::vector<unsigned long long> parts;
    for (;;) {
        const std::size_t dot = version.find('.');
        std::string_view piece = version.substr(0, dot);
        // Like a signed 64-bit integer reading: an optional sign, then digits only.
        const bool negative = !piece.empty() && piece.front() == '-';
        if (!piece.empty() && (piece.front() == '+' || negative)) piece.remove_prefix(1);
        unsigned long long n = 0;
        const auto [end, error] = std::from_chars(piece.data(), piece.data() + piece.size(), n);
        if (piece.empty() || error != std::errc() || end != piece.data() + piece.size() ||
            n > static_cast<unsigned long long>(INT64_MAX) || (negative && n != 0))
            return std::nullopt;
        parts.push_back(n);
        if (dot == std::string_view::npos) return parts;
        version.remove_prefix(dot + 1);
    }
}

} // namespace

std::string current() {
    const std::string_view stamped = NORROW_VERSION;
    return std::string(stamped.empty() ? development : stamped);
}

bool isNewer(std::string_view candidate, std::string_view base) {
    const auto a = numbers(candidate);
    const auto b = numbers(base);
    if (!a || !b) return false;
    const std::size_t length = std::max(a->size(), b->size());
    for (std::size_t i = 0; i < length; ++i) {
        const unsigned long long x = i < a->size() ? (*a)[i] : 0;
        const unsigned long long y = i < b->size() ? (*b)[i] : 0;
        if (x != y) return x > y;
    }
    return false;
}

bool bridgeIsStale(const std::optional<std::string>& reported, std::string_view running) {
    if (running == development) return false;
    if (!reported || reported->empty() || *reported == development) return false;
    return *reported != running;
}

} // namespace norrow::AppVersion
