#include "app/CommandLine.h"

namespace jorvane::commandline {

Parsed parse(const std::vector<std::string_view>& arguments) {
    if (arguments.empty()) return {};
    if (arguments.size() > 1) {
        return {Action::error,
                "jorvane: one option at most (got " + std::to_string(arguments.size()) + "); see jorvane --help"};
    }
    const std::string_view option = arguments.front();
    if (option == "--help" || option == "-h") return {Action::help, {}};
    if (option == "--version") return {Action::version, {}};
    if (option == "--preferences") return {Action::preferences, {}};
    if (option == "--quit") return {Action::quit, {}};
    // Printed as given but for control characters, which could rewrite the terminal.
    std::string shown;
    for (const char c : option.substr(0, 80))
        shown.push_back(static_cast<unsigned char>(c) < 0x20 || c == 0x7f ? '?' : c);
    if (option.starts_with("-")) return {Action::error, "jorvane: unknown option '" + shown + "'; see jorvane --help"};
    return {Action::error, "jorvane: unexpected argument '" + shown + "'; see jorvane --help"};
}

std::string usage() {
    return "Usage: jorvane [--preferences | --quit | --help | --version]\n"
           "\n"
           "An address bar for Thunar windows: click the title of a Thunar window, or\n"
           "press Ctrl+G in it, and type a path with completion.\n"
           "\n"
           "  --preferences  open the preferences of the running Jorvane (or start it)\n"
           "  --quit         end the running Jorvane\n"
           "  -h, --help     show this help and exit\n"
           "  --version      show the version and exit\n"
           "\n"
           "Without an option Jorvane starts and runs in the background; see jorvane(1).\n";
}

}  // namespace jorvane::commandline
