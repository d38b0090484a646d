#include "core/StrictJson.h"

namespace norrow::StrictJson {

nlohmann::json parse(std::string_view text, const nlohmann::json::parser_callback_t& callback) {
    using json = nlohmann::json;
    if (text.find('\0') != std::string_view::npos) return json::value_t::discarded;
    try {
        return json::parse(text, callback, false);
    } catch (...) {
        return json::value_t::discarded;
    }
}

} // namespace norrow::StrictJson
