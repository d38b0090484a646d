// The session list as the status menu builds it: the live sessions from the bridge's state
// folder and a name for each, found in 100 MB transcripts. Every tenth transcript has its
// working folder beyond the bytes a lookup may read, so its lookup fails on every rebuild.
#include "core/BridgeState.h"
#include "core/SessionNames.h"
#include "tests/support/TempDir.h"

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <fstream>
#include <iterator>
#include <map>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>

namespace norrow {
namespace {

constexpr off_t transcriptSize = off_t{100} << 20;
constexpr int projectFolders = 10;

// Bytes this process has read through read(2) and its kin so far.
long long bytesReadSoFar() {
    std::ifstream io("/proc/self/io");
    std::string key;
    long long value = 0;
    while (io >> key >> value)
        if (key == "rchar:") return value;
    return 0;
}

// What reading the counter itself adds to the next reading.
long long counterOverhead() {
    const long long first = bytesReadSoFar();
    return bytesReadSoFar() - first;
}

std::string corpusTranscript() {
    std::ifstream in(std::filesystem::path(NORROW_CORPUS_DIR) / "transcripts" /
                         "kaushikc44-soltax.jsonl",
                     std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

// Transcript lines without a working folder, about 2.5 kB each, as long tool results are.
std::string linesWithoutFolder(std::size_t atLeast) {
    const std::string line =
        R"({"type":"assistant","message":{"role":"assistant","content":[{"type":"text","text":")" +
        std::string(2400, 'x') +
        R"(\u003cdiv\u003e\u2019"}],"usage":{"input_tokens":12,"output_tokens":345}}})" + "\n";
    std::string lines;
    while (lines.size() < atLeast)
        lines += line;
    return lines;
}

// A Claude Code folder with `count` live sessions, each with a sparse 100 MB transcript.
struct Sessions {
    test::TempDir claude;
    std::filesystem::path state = BridgeState::stateFolder(claude.path());
    std::filesystem::path projects = SessionNames::projectsFolder(claude.path());
    int count;
    int unnamed = 0;

    explicit Sessions(int n) : count(n) {
        std::filesystem::create_directories(state);
        const std::string found = corpusTranscript();
        const std::string beyondReach = linesWithoutFolder(SessionNames::readLimit + 1) + found;
        for (int i = 0; i < count; ++i) {
            const std::string id = "session-" + std::to_string(i);
            std::ofstream(state / (id + ".json")) << "{}";
            const auto folder =
                projects / ("-home-u-project-" + std::to_string(i % projectFolders));
            std::filesystem::create_directories(folder);
            const bool hidden = i % 10 == 0;
            unnamed += hidden;
            write((folder / (id + ".jsonl")).string(), hidden ? beyondReach : found);
        }
    }

    static void write(const std::string& file, const std::string& start) {
        const int fd = ::open(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
        if (fd < 0 ||
            ::write(fd, start.data(), start.size()) != static_cast<ssize_t>(start.size()) ||
            ::ftruncate(fd, transcriptSize) != 0)
            std::abort();
        ::close(fd);
    }
};

const Sessions& sessions(int count) {
    static std::map<int, std::unique_ptr<Sessions>> made;
    auto& slot = made[count];
    if (!slot) slot = std::make_unique<Sessions>(count);
    return *slot;
}

// One menu rebuild.
std::size_t listSessions(SessionNames& names, const Sessions& folder) {
    std::size_t characters = 0;
    for (const auto& session : BridgeState::liveSessionDetails(folder.state))
        characters += names.displayName(session.id, folder.projects).size();
    return characters;
}

// Menu rebuilds, counting the transcript bytes read per name lookup. With `keepNames` the
// names learned earlier stay, as in the running app; without, every rebuild is the first
// after launch and looks up every name.
void menuRebuilds(benchmark::State& state, bool keepNames) {
    const auto& folder = sessions(static_cast<int>(state.range(0)));
    SessionNames learned;
    listSessions(learned, folder);
    const long long overhead = counterOverhead();
    const long long before = bytesReadSoFar();
    for (auto _ : state) {
        SessionNames fresh;
        benchmark::DoNotOptimize(listSessions(keepNames ? learned : fresh, folder));
    }
    const double lookups =
        static_cast<double>(state.iterations()) * (keepNames ? folder.unnamed : folder.count);
    state.counters["bytesPerLookup"] =
        static_cast<double>(bytesReadSoFar() - before - overhead) / lookups;
}

void BM_MenuSessionList(benchmark::State& state) {
    menuRebuilds(state, true);
}
BENCHMARK(BM_MenuSessionList)->Arg(1)->Arg(100)->Arg(1000)->Unit(benchmark::kMillisecond);

void BM_MenuSessionListFirst(benchmark::State& state) {
    menuRebuilds(state, false);
}
BENCHMARK(BM_MenuSessionListFirst)->Arg(1)->Arg(100)->Arg(1000)->Unit(benchmark::kMillisecond);

// One failing lookup on its own: never more than the first 64000 bytes.
void BM_FailingLookup(benchmark::State& state) {
    const auto& folder = sessions(1);
    const long long overhead = counterOverhead();
    long long most = 0;
    for (auto _ : state) {
        state.PauseTiming();
        const long long before = bytesReadSoFar();
        state.ResumeTiming();
        benchmark::DoNotOptimize(SessionNames::findCWD("session-0", folder.projects));
        state.PauseTiming();
        most = std::max(most, bytesReadSoFar() - before - overhead);
        state.ResumeTiming();
    }
    state.counters["maxBytesRead"] = static_cast<double>(most);
}
BENCHMARK(BM_FailingLookup)->Unit(benchmark::kMicrosecond);

} // namespace
} // namespace norrow

BENCHMARK_MAIN();
