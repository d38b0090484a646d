#include "core/Summary.h"

namespace norrow {
namespace {

struct KindTexts {
    std::string_view raw;
    std::string_view label;
    std::string_view symbol;
};

constexpr std::array<KindTexts, 3> kKinds = {{
    {"done", "Done", "\u2705"},
    {"needsYou", "Needs you", "\u2753"},
    {"waiting", "Waiting", "\u23F8\uFE0F"},
}};

const KindTexts& textsOf(SummaryKind kind) {
    return kKinds[static_cast<std::size_t>(kind)];
}

} // namespace

std::string_view rawValue(SummaryKind kind) {
    return textsOf(kind).raw;
}
std::string_view label(SummaryKind kind) {
    return textsOf(kind).label;
}
std::string_view symbol(SummaryKind kind) {
    return textsOf(kind).symbol;
}

} // namespace norrow
