// Completion in big folders, measured against what a user would otherwise
// have: bash's own file-name completion (compgen -f) on the same folder and
// prefix, and a bare getdents64 loop for the first listing.
//
// The program builds two folders under /tmp once per run (100,000 entries of
// mixed kinds, and 1,000,000 plain files) and removes them at the end. The
// kernel's caches are warm for every measurement (the folders were just
// created), as they are for a folder that a file manager window shows.
//
// Counters (all times are medians over the iterations, in milliseconds):
//   Keystroke/*:  median_ms, compgen_ms (one compgen -f call, timed inside one
//                 bash process), ratio = median_ms / compgen_ms, candidates.
//   Typing/*:     a user typing "IMG_012345" into the 1,000,000-name folder,
//                 one key every 60 ms, first key included: the longest
//                 main-thread stall per key (p99_stall_ms, max_stall_ms: the
//                 keystroke itself and every delivery of a grown answer) and
//                 the time from the first key to the first candidates
//                 (first_candidates_ms); p99_stall_cpu_ms counts only the
//                 main thread's own CPU time, which a busy machine does not
//                 inflate. Async is the bar as it is; Blocking
//                 waits for every answer on the main thread, as completion
//                 once did.
//   FirstListing: getdents_ms (bare loop), listing_ms (DirectoryListing::read),
//                 first_keystroke_ms (a fresh engine completing a prefix that
//                 matches nothing: listing plus one filtering pass), and their
//                 ratios to the bare loop; cache_bytes_per_100k.

#include "addressbar/CompletionEngine.h"
#include "addressbar/DirectoryListing.h"
#include "util/Dispatch.h"

#include <benchmark/benchmark.h>

#include <dirent.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

extern char** environ;

namespace {

using jorvane::CompletionEngine;
using jorvane::DirectoryListing;
using Clock = std::chrono::steady_clock;

double msSince(Clock::time_point start) {
    return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

double median(std::vector<double> samples) {
    if (samples.empty()) return 0;
    const auto middle = samples.begin() + static_cast<std::ptrdiff_t>(samples.size() / 2);
    std::nth_element(samples.begin(), middle, samples.end());
    return *middle;
}

void check(bool ok, const std::string& what) {
    if (!ok) throw std::runtime_error(what + ": " + std::strerror(errno));
}

// ---------------------------------------------------------------------------
// The folders.

std::string benchRoot;

const std::array<const char*, 10> firstWords = {"Alpha",   "Bravo", "Charlie", "Delta", "Echo",
                                                "Foxtrot", "Golf",  "Hotel",   "India", "Juliet"};
const std::array<const char*, 10> secondWords = {"Notes",   "Photo", "Draft", "Scan",  "Backup",
                                                 "Invoice", "Mail",  "Track", "Video", "Report"};
const std::array<const char*, 7> extensions = {".txt", ".jpg", ".pdf", ".md", ".log", ".tar.gz", ""};

// 100 stems ("AlphaNotes" ... "JulietReport"), none a prefix of another, so
// a stem matches 1% of the names. One entry in 20 is a directory and one in
// 100 a symbolic link (to a file, to a directory, or dangling).
std::string mixedName(int i) {
    const int stem = (i / 3) % 100;
    char number[16];
    std::snprintf(number, sizeof number, "_%06d", i);
    return std::string(firstWords[static_cast<std::size_t>(stem / 10)]) +
           secondWords[static_cast<std::size_t>(stem % 10)] + number +
           (i % 20 == 7 ? "" : extensions[static_cast<std::size_t>(i % 7)]);
}

void createMixedFolder(const std::string& path, int count) {
    check(::mkdir(path.c_str(), 0755) == 0, "mkdir " + path);
    const int dir = ::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    check(dir >= 0, "open " + path);
    for (int i = 0; i < count; ++i) {
        const std::string name = mixedName(i);
        if (i % 20 == 7) {
            check(::mkdirat(dir, name.c_str(), 0755) == 0, "mkdirat");
        } else if (i % 100 == 13) {
            const int kind = (i / 100) % 4;
            const std::string target = kind == 0 ? "missing-target" : kind == 1 ? mixedName(7) : mixedName(0);
            check(::symlinkat(target.c_str(), dir, name.c_str()) == 0, "symlinkat");
        } else {
            const int fd = ::openat(dir, name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
            check(fd >= 0, "openat");
            ::close(fd);
        }
    }
    ::close(dir);
}

void createPlainFolder(const std::string& path, int count) {
    check(::mkdir(path.c_str(), 0755) == 0, "mkdir " + path);
    const int dir = ::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    check(dir >= 0, "open " + path);
    char name[32];
    for (int i = 0; i < count; ++i) {
        std::snprintf(name, sizeof name, "IMG_%07d.jpg", i);
        const int fd = ::openat(dir, name, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
        check(fd >= 0, "openat");
        ::close(fd);
    }
    ::close(dir);
}

// Removes a folder built above (one level of empty subfolders at most).
void removeFolder(const std::string& path) {
    const auto listing = DirectoryListing::read(path);
    if (listing) {
        const int dir = ::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        if (dir >= 0) {
            for (std::size_t i = 0; i < listing->size(); ++i) {
                const std::string name(listing->name(i));
                const int flags = listing->type(i) == DT_DIR ? AT_REMOVEDIR : 0;
                ::unlinkat(dir, name.c_str(), flags);
            }
            ::close(dir);
        }
    }
    ::rmdir(path.c_str());
}

const std::string& folder100k() {
    static const std::string path = [] {
        std::string p = benchRoot + "/k100";
        createMixedFolder(p, 100'000);
        return p;
    }();
    return path;
}

const std::string& folder1M() {
    static const std::string path = [] {
        std::string p = benchRoot + "/m1";
        createPlainFolder(p, 1'000'000);
        return p;
    }();
    return path;
}

// ---------------------------------------------------------------------------
// The yardsticks.

// Runs compgen -f on `word` `runs` times inside one bash process, timing each
// call with $EPOCHREALTIME, and returns the median in milliseconds.
double compgenMedianMs(const std::string& word, int runs) {
    const char* script =
        "for ((i = 0; i < $2; i++)); do s=$EPOCHREALTIME; compgen -f -- \"$1\" >/dev/null; e=$EPOCHREALTIME; "
        "echo \"${s/./} ${e/./}\"; done";
    int out[2];
    check(::pipe(out) == 0, "pipe");
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, out[1], 1);
    posix_spawn_file_actions_addclose(&actions, out[0]);
    posix_spawn_file_actions_addclose(&actions, out[1]);
    const std::string count = std::to_string(runs);
    std::vector<char*> argv = {const_cast<char*>("bash"),
                               const_cast<char*>("-c"),
                               const_cast<char*>(script),
                               const_cast<char*>("bash"),
                               const_cast<char*>(word.c_str()),
                               const_cast<char*>(count.c_str()),
                               nullptr};
    std::vector<std::string> env = {"LC_ALL=C", "PATH=/usr/bin:/bin"};
    std::vector<char*> envp;
    for (auto& e : env) envp.push_back(e.data());
    envp.push_back(nullptr);
    pid_t pid = 0;
    const int spawned = posix_spawn(&pid, "/bin/bash", &actions, nullptr, argv.data(), envp.data());
    posix_spawn_file_actions_destroy(&actions);
    ::close(out[1]);
    if (spawned != 0) {
        ::close(out[0]);
        throw std::runtime_error("cannot start /bin/bash");
    }
    std::string text;
    char buffer[4096];
    for (ssize_t n; (n = ::read(out[0], buffer, sizeof buffer)) > 0;) text.append(buffer, static_cast<std::size_t>(n));
    ::close(out[0]);
    int status = 0;
    ::waitpid(pid, &status, 0);
    std::vector<double> samples;
    std::istringstream lines(text);
    long long start = 0;
    long long end = 0;
    while (lines >> start >> end) samples.push_back(static_cast<double>(end - start) / 1000.0);
    if (samples.empty()) throw std::runtime_error("compgen gave no timings");
    return median(samples);
}

// The least a listing can cost: getdents64 into the same 64 KiB buffer,
// walking the records.
std::size_t bareGetdentsLoop(const std::string& path, std::size_t bufferSize) {
    const int fd = ::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    check(fd >= 0, "open " + path);
    std::unique_ptr<char, decltype(&std::free)> buffer(static_cast<char*>(std::aligned_alloc(8, bufferSize)),
                                                       &std::free);
    std::size_t entries = 0;
    for (;;) {
        const long got = ::syscall(SYS_getdents64, fd, buffer.get(), bufferSize);
        if (got <= 0) break;
        for (long pos = 0; pos < got; ++entries) {
            unsigned short length;
            std::memcpy(&length, buffer.get() + pos + 16, sizeof length);
            pos += length;
        }
    }
    ::close(fd);
    return entries;
}

// ---------------------------------------------------------------------------
// Benchmarks.

void Keystroke(benchmark::State& state, const char* prefix, const char* compgenPrefix) {
    const std::string& folder = folder100k();
    const std::string text = folder + "/" + prefix;
    // Each answer is waited for to its end: the figure is the whole work.
    CompletionEngine::Options patient;
    patient.waitBudget = std::chrono::seconds(60);
    CompletionEngine engine({}, patient);
    const std::optional<std::string> location;
    engine.updateCompletions(text, location, {});  // lists the folder
    std::vector<double> samples;
    for (auto _ : state) {
        const auto start = Clock::now();
        engine.updateCompletions(text, location, {});
        samples.push_back(msSince(start));
        benchmark::DoNotOptimize(engine.currentCompletions().data());
    }
    const double ours = median(samples);
    const double compgen = compgenMedianMs(folder + "/" + compgenPrefix, 15);
    state.counters["median_ms"] = ours;
    state.counters["compgen_ms"] = compgen;
    state.counters["ratio"] = ours / compgen;
    state.counters["candidates"] = static_cast<double>(engine.currentCompletions().size());
}

// A stem matching 1% of the names (typed in the wrong case: completion
// ignores case, compgen does not, so compgen gets the exact case to find the
// same names).
BENCHMARK_CAPTURE(Keystroke, OnePercent, "alphanotes", "AlphaNotes")->Unit(benchmark::kMillisecond)->MinTime(1.0);
BENCHMARK_CAPTURE(Keystroke, NoMatch, "zulu", "zulu")->Unit(benchmark::kMillisecond)->MinTime(1.0);
// compgen takes "*" literally (it finds nothing) but still reads the folder.
BENCHMARK_CAPTURE(Keystroke, StarPattern, "*invoice_00*.pdf", "*invoice_00*.pdf")
    ->Unit(benchmark::kMillisecond)
    ->MinTime(1.0);
BENCHMARK_CAPTURE(Keystroke, BroadStarPattern, "*.pdf", "*.pdf")->Unit(benchmark::kMillisecond)->MinTime(1.0);
// Every name: the worst keystroke (the folder's path and a "/").
BENCHMARK_CAPTURE(Keystroke, WholeFolder, "", "")->Unit(benchmark::kMillisecond)->MinTime(1.0);

// CPU time of the calling thread: the main thread's own work, whatever else
// the machine runs meanwhile.
double threadCpuMs() {
    timespec now{};
    ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) * 1e3 + static_cast<double>(now.tv_nsec) / 1e6;
}

double percentile99(std::vector<double> samples) {
    std::sort(samples.begin(), samples.end());
    return samples.empty() ? 0 : samples[std::min(samples.size() - 1, samples.size() * 99 / 100)];
}

void Typing(benchmark::State& state, bool blocking) {
    const std::string& folder = folder1M();
    const std::string typed = "IMG_012345";
    jorvane::dispatch::mainQueue().bindToCurrentThread();
    std::vector<double> stalls;
    std::vector<double> cpu;
    std::vector<double> firstCandidates;
    for (auto _ : state) {
        CompletionEngine::Options options;
        if (blocking) options.waitBudget = std::chrono::seconds(60);
        CompletionEngine engine({}, options);
        jorvane::dispatch::mainQueue().drain();
        const auto firstKey = Clock::now();
        bool seen = false;
        for (std::size_t length = 1; length <= typed.size(); ++length) {
            const auto keyStart = Clock::now();
            const double cpuStart = threadCpuMs();
            engine.updateCompletions(folder + "/" + typed.substr(0, length), std::nullopt, {});
            stalls.push_back(msSince(keyStart));
            cpu.push_back(threadCpuMs() - cpuStart);
            // The user's next key comes 60 ms later; meanwhile the main
            // thread takes what the workers hand over.
            const auto nextKey = keyStart + std::chrono::milliseconds(60);
            while (Clock::now() < nextKey) {
                if (!seen && !engine.currentCompletions().empty()) {
                    firstCandidates.push_back(msSince(firstKey));
                    seen = true;
                }
                const auto drainStart = Clock::now();
                const double drainCpu = threadCpuMs();
                if (jorvane::dispatch::mainQueue().drain() > 0) {
                    stalls.push_back(msSince(drainStart));
                    cpu.push_back(threadCpuMs() - drainCpu);
                } else {
                    std::this_thread::sleep_for(std::chrono::microseconds(200));
                }
            }
        }
        if (!seen) firstCandidates.push_back(msSince(firstKey));
    }
    state.counters["p99_stall_ms"] = percentile99(stalls);
    state.counters["max_stall_ms"] = *std::max_element(stalls.begin(), stalls.end());
    state.counters["p99_stall_cpu_ms"] = percentile99(cpu);
    state.counters["first_candidates_ms"] = median(firstCandidates);
}
BENCHMARK_CAPTURE(Typing, Async, false)->Unit(benchmark::kMillisecond)->Iterations(5);
BENCHMARK_CAPTURE(Typing, Blocking, true)->Unit(benchmark::kMillisecond)->Iterations(5);

void FirstListing(benchmark::State& state) {
    const std::string& folder = folder1M();
    std::vector<double> bare;
    std::vector<double> bareLarge;
    std::vector<double> listing;
    std::vector<double> firstKeystroke;
    std::size_t bytes = 0;
    std::size_t names = 0;
    for (auto _ : state) {
        auto start = Clock::now();
        benchmark::DoNotOptimize(bareGetdentsLoop(folder, 64 * 1024));
        bare.push_back(msSince(start));

        start = Clock::now();
        benchmark::DoNotOptimize(bareGetdentsLoop(folder, 1024 * 1024));
        bareLarge.push_back(msSince(start));

        start = Clock::now();
        {
            const auto read = DirectoryListing::read(folder);
            listing.push_back(msSince(start));
            bytes = read ? read->bytesHeld() : 0;
            names = read ? read->size() : 0;
        }

        CompletionEngine::Options patient;
        patient.waitBudget = std::chrono::seconds(60);
        CompletionEngine engine({}, patient);
        start = Clock::now();
        engine.updateCompletions(folder + "/zulu", std::nullopt, {});
        firstKeystroke.push_back(msSince(start));
    }
    const double base = median(bare);
    state.counters["getdents_ms"] = base;
    state.counters["getdents_1MiB_buffer_ms"] = median(bareLarge);
    state.counters["listing_ms"] = median(listing);
    state.counters["listing_ratio"] = median(listing) / base;
    state.counters["first_keystroke_ms"] = median(firstKeystroke);
    state.counters["first_keystroke_ratio"] = median(firstKeystroke) / base;
    state.counters["cache_bytes_per_100k"] =
        names ? static_cast<double>(bytes) * 100'000 / static_cast<double>(names) : 0;
}
BENCHMARK(FirstListing)->Unit(benchmark::kMillisecond)->Iterations(9);

void CacheOf100kMixedNames(benchmark::State& state) {
    const std::string& folder = folder100k();
    std::size_t bytes = 0;
    std::vector<double> bare;
    std::vector<double> samples;
    for (auto _ : state) {
        auto start = Clock::now();
        benchmark::DoNotOptimize(bareGetdentsLoop(folder, 64 * 1024));
        bare.push_back(msSince(start));
        start = Clock::now();
        const auto read = DirectoryListing::read(folder);
        samples.push_back(msSince(start));
        bytes = read ? read->bytesHeld() : 0;
    }
    state.counters["getdents_ms"] = median(bare);
    state.counters["listing_ms"] = median(samples);
    state.counters["cache_bytes"] = static_cast<double>(bytes);
}
BENCHMARK(CacheOf100kMixedNames)->Unit(benchmark::kMillisecond)->Iterations(9);

}  // namespace

int main(int argc, char** argv) {
    char pattern[] = "/tmp/jorvane-bench-completion-XXXXXX";
    if (!::mkdtemp(pattern)) {
        std::perror("mkdtemp");
        return 1;
    }
    benchRoot = pattern;
    int status = 0;
    try {
        benchmark::Initialize(&argc, argv);
        if (benchmark::ReportUnrecognizedArguments(argc, argv))
            status = 1;
        else
            benchmark::RunSpecifiedBenchmarks();
        benchmark::Shutdown();
    } catch (const std::exception& error) {
        std::fprintf(stderr, "bench_completion: %s\n", error.what());
        status = 1;
    }
    removeFolder(benchRoot + "/k100");
    removeFolder(benchRoot + "/m1");
    ::rmdir(benchRoot.c_str());
    return status;
}
