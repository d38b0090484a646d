#include "support/PulseServer.h"

#include "support/Eventually.h"
#include "support/Files.h"

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <regex>
#include <stdexcept>

namespace norrow::test {
namespace {

constexpr int rate = 22050;
constexpr int bytesPerSecond = rate * 2;

// The one number sox's `stat` prints after `label`.
double statValue(const std::string& report, const std::string& label) {
    std::smatch match;
    const std::regex line(label + R"(:\s*(-?[0-9.]+))");
    if (!std::regex_search(report, match, line))
        throw std::runtime_error("sox printed no " + label + ":\n" + report);
    return std::stod(match[1]);
}

} // namespace

PulseServer::PulseServer() : address_("unix:" + (folder_ / "native").string()) {
    std::filesystem::create_directories(folder_ / "home");
    std::filesystem::create_directories(folder_ / "runtime");
    std::filesystem::permissions(folder_ / "runtime", std::filesystem::perms::owner_all);
    // Nothing but a silent sink, this socket (open to any local client) and no module that
    // would look for real devices, D-Bus or other servers.
    put(folder_ / "server.pa",
        "load-module module-null-sink sink_name=norrow rate=44100 channels=2\n"
        "load-module module-native-protocol-unix auth-anonymous=1 socket=" +
            (folder_ / "native").string() +
            "\n"
            "set-default-sink norrow\n");
    server_ = std::make_unique<Process>(
        std::vector<std::string>{"pulseaudio", "-n", "--daemonize=no", "--system=false",
                                 "--exit-idle-time=-1", "--use-pid-file=no", "--log-level=error",
                                 "--log-target=stderr", "-F", (folder_ / "server.pa").string()},
        Environment{{"HOME", (folder_ / "home").string()},
                    {"XDG_RUNTIME_DIR", (folder_ / "runtime").string()},
                    {"PULSE_RUNTIME_PATH", (folder_ / "runtime").string()}});
    const bool answers = eventually([&] {
        return run({"pactl", "info"}, {}, environment()).status == 0;
    });
    if (!answers) throw std::runtime_error("PulseAudio did not come up:\n" + server_->errors());
}

PulseServer::~PulseServer() {
    server_->stop(SIGTERM);
}

Environment PulseServer::environment() const {
    return {{"PULSE_SERVER", address_}};
}

std::size_t PulseServer::count(const char* what) const {
    const auto listed = run({"pactl", "list", "short", what}, {}, environment());
    if (listed.status != 0) throw std::runtime_error("pactl failed: " + listed.err);
    return static_cast<std::size_t>(std::count(listed.out.begin(), listed.out.end(), '\n'));
}

std::size_t PulseServer::playingStreams() const {
    return count("sink-inputs");
}

std::size_t PulseServer::recordingStreams() const {
    return count("source-outputs");
}

Recording::Recording(const PulseServer& server) {
    recorder_ = std::make_unique<Process>(
        std::vector<std::string>{"parec", "--raw", "--device", PulseServer::monitor,
                                 "--format=s16le", "--rate=" + std::to_string(rate), "--channels=1",
                                 "--latency-msec=20", (folder_ / "recording.raw").string()},
        server.environment());
    if (!eventually([&] { return server.recordingStreams() > 0; }))
        throw std::runtime_error("parec did not start recording:\n" + recorder_->errors());
}

double Recording::seconds() const {
    std::error_code error;
    const auto size = std::filesystem::file_size(folder_ / "recording.raw", error);
    return error ? 0 : static_cast<double>(size) / bytesPerSecond;
}

Recording::Levels Recording::stop() {
    recorder_->stop(SIGTERM);
    const auto measured =
        run({"sox", "-t", "raw", "-r", std::to_string(rate), "-e", "signed", "-b", "16", "-c", "1",
             (folder_ / "recording.raw").string(), "-n", "stat"});
    if (measured.status != 0) throw std::runtime_error("sox failed: " + measured.err);
    return {statValue(measured.err, "Length \\(seconds\\)"),
            statValue(measured.err, "RMS\\s+amplitude"),
            statValue(measured.err, "Maximum amplitude")};
}

} // namespace norrow::test
