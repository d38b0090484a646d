#include "core/StrictJson.h"

namespace norrow::StrictJson {
namespace {

struct TooDeep {};

} // namespace

nlohmann::json parse(std::string_view text, std::optional<int> maximumDepth) {
    using json = nlohmann::json;
    if (text.find('\0') != std::string_view::npos) return json::value_t::discarded;
    if (!maximumDepth) return json::parse(text, nullptr, false);
    try {
        return json::parse(text, [limit = *maximumDepth](int depth, json::parse_event_t, json&) {
            if (depth > limit) throw TooDeep{};
            return true;
        });
    } catch (const json::exception&) {
    } catch (const TooDeep&) {
    }
    return json::value_t::discarded;
}

} // namespace norrow::StrictJson
