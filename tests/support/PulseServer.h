#pragma once

#include "support/Process.h"
#include "support/TempDir.h"

#include <cstddef>
#include <memory>
#include <string>

namespace norrow::test {

// A private PulseAudio server for sound tests: everything played to it goes into one null
// sink, whose monitor a Recording listens to. The constructor returns once the server
// answers, and throws with what it printed when it does not; the destructor stops it.
//
// It runs as whoever runs the tests, root included: as root PulseAudio only warns that it
// is "not intended to be run as root" when it is told not to be a system instance, and
// serves its socket all the same.
class PulseServer {
public:
    PulseServer();
    ~PulseServer();
    PulseServer(const PulseServer&) = delete;
    PulseServer& operator=(const PulseServer&) = delete;

    // Such as "unix:/tmp/norrow-test-x/native": for $PULSE_SERVER.
    const std::string& address() const { return address_; }
    // What a program needs in its environment to use this server.
    Environment environment() const;
    // The null sink's monitor, which carries whatever is played.
    static constexpr const char* monitor = "norrow.monitor";

    // How many streams are playing now.
    std::size_t playingStreams() const;
    // How many streams are being recorded now.
    std::size_t recordingStreams() const;

private:
    std::size_t count(const char* what) const;

    TempDir folder_;
    std::string address_;
    std::unique_ptr<Process> server_;
};

// Records what the server plays, as 16-bit mono at 22.05 kHz. The constructor returns once
// the server is recording.
class Recording {
public:
    struct Levels {
        double seconds = 0;
        double rms = 0;
        double peak = 0;
    };

    explicit Recording(const PulseServer& server);
    Recording(const Recording&) = delete;
    Recording& operator=(const Recording&) = delete;

    // How much has been recorded so far.
    double seconds() const;
    // Stops recording and measures the whole recording with sox.
    Levels stop();

private:
    TempDir folder_;
    std::unique_ptr<Process> recorder_;
};

} // namespace norrow::test
