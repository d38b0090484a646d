#pragma once

#include <optional>
#include <string>
#include <string_view>

// Which editor link brings a session's folder forward in the editor hosting it.
namespace norrow::TerminalActivator {

// The link that opens `folder` in the editor whose identifier is `host` (any case): the
// editor's scheme, "://file" and the folder's path, percent-encoded as a URL path with "?"
// and "#" encoded too. None for an unknown editor or no host.
std::optional<std::string> revealURL(std::string_view folder,
                                     const std::optional<std::string>& host);

} // namespace norrow::TerminalActivator
