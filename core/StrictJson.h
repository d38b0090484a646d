#pragma once

#include <nlohmann/json.hpp>
#include <string_view>

// The one way Norrow reads JSON text: strictly, the whole text as one value.
namespace norrow::StrictJson {

// The value, or a discarded one when `text` is not exactly one JSON text. A NUL anywhere
// refuses the text: the parser underneath takes a NUL for the end of its input and would
// read "{}\0junk" as "{}". `callback`, when given, sees every parse event and may throw to
// refuse the text.
nlohmann::json parse(std::string_view text,
                     const nlohmann::json::parser_callback_t& callback = nullptr);

} // namespace norrow::StrictJson
