#pragma once

#include <chrono>
#include <map>
#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace norrow::test {

// What a finished program left behind.
struct Finished {
    int status = -1; // exit status, or 128 + signal
    std::string out;
    std::string err;
};

// Variables set for a child on top of the parent's environment.
using Environment = std::map<std::string, std::string>;

// Runs a program to completion with `input` on its standard input.
Finished run(const std::vector<std::string>& argv, const std::string& input = {},
             const Environment& environment = {});

// A program running in the background, its standard output read line by line.
class Process {
public:
    Process(const std::vector<std::string>& argv, const Environment& environment = {});
    ~Process();
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;

    // The next line of standard output without its line feed; nothing on timeout or end.
    std::optional<std::string>
    readLine(std::chrono::milliseconds timeout = std::chrono::seconds(5));
    // Sends `signal` and waits for the exit; gives the status as `run` does.
    int stop(int signal);
    // Everything written to standard error so far.
    std::string errors() const;
    pid_t pid() const { return pid_; }

private:
    pid_t pid_ = -1;
    int out_ = -1;
    int err_ = -1;
    std::string pending_;
    std::optional<int> status_;
};

} // namespace norrow::test
