#pragma once

#include <chrono>
#include <thread>

namespace norrow::test {

// Asks `condition` again and again until it holds or `timeout` has passed; gives its last
// answer. For what another process does in its own time, such as a window manager.
template <typename Condition>
bool eventually(Condition condition,
                std::chrono::steady_clock::duration timeout = std::chrono::seconds(10)) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (!condition()) {
        if (std::chrono::steady_clock::now() >= deadline) return condition();
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return true;
}

} // namespace norrow::test
