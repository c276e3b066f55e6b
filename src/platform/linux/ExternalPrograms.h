#pragma once

// The programs and services outside Jorvane that it runs or talks to at run
// time, each with the Debian package that brings it. This one list is where
// the program takes their names from, where the package's Depends and
// Recommends come from (cmake/Packaging.cmake reads the lines below), and
// what the package test checks the built package against.

#include <string_view>

namespace jorvane::external {

inline constexpr std::string_view kGio = "gio";                   // mounts, the Trash, opening files
inline constexpr std::string_view kXfconfQuery = "xfconf-query";  // Thunar's settings
inline constexpr std::string_view kPkexec = "/usr/bin/pkexec";    // the move of a release into /opt
inline constexpr std::string_view kThunar = "thunar";             // the file manager itself

struct Requirement {
    std::string_view what;     // a program, or the service it stands for
    std::string_view package;  // the Debian package that brings it
    bool required;             // Depends; otherwise Recommends
};

// Keep one entry a line, as {"what", "package", true|false}: the build reads them.
inline constexpr Requirement kRequirements[] = {
    {"gio", "libglib2.0-bin", true},
    {"xfconf-query", "xfconf", true},
    {"at-spi-bus-launcher", "at-spi2-core", true},
    {"/usr/bin/pkexec", "pkexec", false},
    {"thunar", "thunar", false},
};

}  // namespace jorvane::external
