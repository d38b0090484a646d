#pragma once

#include "support/Process.h"

#include <chrono>
#include <filesystem>
#include <string>
#include <sys/types.h>
#include <vector>

namespace norrow::test {

// A program running in a terminal of a private tmux server, driven by keys and read off the
// screen, as a user sees it. Nothing of the caller's environment reaches the program beyond
// `environment`. The destructor stops the server and the program, even mid-test.
class Terminal {
public:
    struct Options {
        std::filesystem::path folder;           // the server's socket and the program's stderr
        std::filesystem::path workingDirectory; // where the program starts
        Environment environment;                // the program's whole environment
        int columns = 160;
        int rows = 50;
        // Killed after this long, in case the test process dies without its destructors.
        std::chrono::seconds lifetime = std::chrono::minutes(5);
    };

    Terminal(const std::vector<std::string>& argv, const Options& options);
    ~Terminal();
    Terminal(const Terminal&) = delete;
    Terminal& operator=(const Terminal&) = delete;

    // Types `text` as it is, without interpreting key names.
    void type(const std::string& text);
    // Presses keys by tmux's names: "Enter", "Escape", "Down", "BTab", "C-c".
    void press(const std::vector<std::string>& keys);
    // The visible screen as text; empty once the program has ended.
    std::string screen() const;
    // Waits until `text` is on the screen; false when `timeout` passes first.
    bool waitFor(const std::string& text, std::chrono::milliseconds timeout) const;
    // What the program wrote to its standard error.
    std::string errors() const;

private:
    Finished tmux(std::vector<std::string> arguments) const;

    std::string socket_;
    std::filesystem::path errors_;
    pid_t group_ = 0; // the program's process group, led by the terminal's first process
};

} // namespace norrow::test
