#pragma once

#include <chrono>
#include <optional>
#include <poll.h>
#include <string>
#include <sys/socket.h>

namespace norrow::test {

// Everything the peer sends on `fd` until it closes the connection (or resets it); nothing
// when it is still open at `until`.
inline std::optional<std::string> readUntilClosed(int fd,
                                                  std::chrono::steady_clock::time_point until) {
    std::string received;
    char buffer[4096];
    for (;;) {
        const auto left =
            std::chrono::ceil<std::chrono::milliseconds>(until - std::chrono::steady_clock::now());
        pollfd ready{fd, POLLIN, 0};
        if (left.count() <= 0 || ::poll(&ready, 1, static_cast<int>(left.count())) <= 0)
            return std::nullopt;
        const ssize_t n = ::recv(fd, buffer, sizeof buffer, 0);
        if (n <= 0) return received;
        received.append(buffer, static_cast<std::size_t>(n));
    }
}

} // namespace norrow::test
