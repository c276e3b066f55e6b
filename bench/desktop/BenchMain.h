#pragma once

// The main of a benchmark on the end-to-end desktop: runs the benchmarks,
// reports a desktop that could not be set up as one line and a failure, and
// takes down what the benchmarks started.

#include <benchmark/benchmark.h>

#include <cstdio>
#include <exception>
#include <functional>

namespace jorvane::e2e {

inline int runDesktopBenchmarks(int argc, char** argv, const char* name, const std::function<void()>& tearDown) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    try {
        benchmark::RunSpecifiedBenchmarks();
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s: %s\n", name, error.what());
        return 1;
    }
    tearDown();
    benchmark::Shutdown();
    return 0;
}

}  // namespace jorvane::e2e
