#pragma once

#include <nlohmann/json.hpp>
#include <optional>
#include <string_view>

// The one way Norrow reads JSON text: strictly, the whole text as one value.
namespace norrow::StrictJson {

// The value, or a discarded one when `text` is not exactly one JSON text, or when it nests
// deeper than `maximumDepth` (when given). A NUL anywhere refuses the text: the parser
// underneath takes a NUL for the end of its input and would read "{}\0junk" as "{}".
nlohmann::json parse(std::string_view text, std::optional<int> maximumDepth = std::nullopt);

} // namespace norrow::StrictJson
