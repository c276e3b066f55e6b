// jorvane-handler: calls one Thunar handler and prints its answer.
//
//   jorvane-handler [--window XID] [--repeat N] NAME [PARAM...]
//
// Prints the answer on one line ("(nothing)" when there is none) with the
// time it took, and logs the handlers' failures to standard error. With
// --repeat it calls N times and prints the median time as well.

#include <algorithm>
#include <chrono>
#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "platform/thunar/ThunarHandlerCatalogue.h"
#include "util/Diagnostics.h"

namespace {

int usage() {
    std::fprintf(stderr, "usage: jorvane-handler [--window XID] [--repeat N] NAME [PARAM...]\nhandlers:");
    for (const std::string& name : jorvane::ThunarHandlerCatalogue::handlerNames())
        std::fprintf(stderr, " %s", name.c_str());
    std::fprintf(stderr, "\n");
    return 2;
}

}  // namespace

int main(int argc, char** argv) {
    std::setlocale(LC_ALL, "");
    jorvane::log::setLevel(jorvane::log::Debug);
    std::vector<std::string> args(argv + 1, argv + argc);
    std::uint32_t window = 0;
    int repeat = 1;
    std::size_t at = 0;
    while (at < args.size() && args[at].rfind("--", 0) == 0) {
        if (at + 1 >= args.size()) return usage();
        char* end = nullptr;
        if (args[at] == "--window") {
            window = static_cast<std::uint32_t>(std::strtoul(args[at + 1].c_str(), &end, 0));
        } else if (args[at] == "--repeat") {
            repeat = static_cast<int>(std::strtol(args[at + 1].c_str(), &end, 10));
        } else {
            return usage();
        }
        if (!end || *end != '\0' || repeat < 1) return usage();
        at += 2;
    }
    if (at >= args.size()) return usage();
    const std::string name = args[at];
    const std::vector<std::string> params(args.begin() + static_cast<long>(at) + 1, args.end());

    jorvane::ThunarHandlerCatalogue catalogue;
    if (window != 0) catalogue.setFrontWindow(window);
    std::vector<double> times;
    std::optional<std::string> answer;
    for (int i = 0; i < repeat; ++i) {
        const auto start = std::chrono::steady_clock::now();
        answer = catalogue.call(name, params);
        times.push_back(std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count());
    }
    if (answer)
        std::printf("%s\n", answer->c_str());
    else
        std::printf("(nothing)\n");
    std::sort(times.begin(), times.end());
    std::fprintf(stderr, "%s: %.2f ms", name.c_str(), times.back());
    if (repeat > 1) std::fprintf(stderr, " (median of %d: %.2f ms)", repeat, times[times.size() / 2]);
    std::fprintf(stderr, "\n");
    return answer ? 0 : 1;
}
