#!/usr/bin/env bash
# Builds the Debian package from a built tree, installs it into an empty root
# with dpkg and checks what a user's system would get: the program, its
# resources, the menu entry, the icon, the man page and the AppStream
# metadata, the package's dependencies (the libraries and the programs it
# runs), what lintian, appstreamcli and desktop-file-validate say, and that
# the installed program runs on the system's libraries alone (without a display
# it must say so and exit with code 2).
#
# Usage: package_test.sh <build-dir>
set -euo pipefail

build=${1:?usage: package_test.sh <build-dir>}
[ -f "$build/CPackConfig.cmake" ] || { echo "package_test: no CPackConfig.cmake in $build" >&2; exit 1; }

tmp=$(mktemp -d "${TMPDIR:-/tmp}/jorvane-package.XXXXXX")
trap 'rm -rf "$tmp"' EXIT

fail() { echo "package_test: FAIL: $*" >&2; exit 1; }

# The package, built into the temporary folder (cpack's own staging included).
cpack --config "$build/CPackConfig.cmake" -G DEB -B "$tmp/out" >"$tmp/cpack.log" 2>&1 ||
    { cat "$tmp/cpack.log" >&2; fail "cpack did not build the package"; }
debs=("$tmp"/out/jorvane_*.deb)
[ ${#debs[@]} -eq 1 ] && [ -f "${debs[0]}" ] || fail "expected one jorvane_*.deb, got: ${debs[*]}"
deb=${debs[0]}

field() { dpkg-deb -f "$deb" "$1"; }
[ "$(field Package)" = jorvane ] || fail "package name is '$(field Package)'"
[ "$(field Section)" = utils ] || fail "section is '$(field Section)'"
# The tools and services the program runs: one list in the code
# (src/platform/linux/ExternalPrograms.h), read here as the build reads it.
source_dir=$(cd "$(dirname "$0")/../.." && pwd)
requirements=$(sed -nE 's/^ *\{"[^"]+", "([^"]+)", (true|false)\},.*/\1 \2/p' \
    "$source_dir/src/platform/linux/ExternalPrograms.h")
[ -n "$requirements" ] || fail "no requirements read from ExternalPrograms.h"
listed() { tr ',' '\n' <<<"$1" | sed -E 's/^ *//; s/ .*//' | grep -qx "$2"; }
while read -r package required; do
    if [ "$required" = true ]; then
        listed "$(field Depends)" "$package" || fail "Depends lacks $package: '$(field Depends)'"
    else
        listed "$(field Recommends)" "$package" || fail "Recommends lacks $package: '$(field Recommends)'"
    fi
done <<<"$requirements"
# Worked out by dpkg-shlibdeps: the program links Qt and libxcb at least.
depends=$(field Depends)
[[ $depends == *libqt6widgets6* ]] || fail "Depends lacks Qt Widgets: '$depends'"
[[ $depends == *libxcb1* ]] || fail "Depends lacks libxcb1: '$depends'"

# An empty root with a dpkg database of its own; --force-depends because the
# root has none of the dependencies, --force-not-root for runs as a user.
root=$tmp/root
mkdir -p "$root/var/lib/dpkg/info" "$root/var/lib/dpkg/updates" "$root/var/lib/dpkg/triggers"
touch "$root/var/lib/dpkg/status" "$root/var/lib/dpkg/available"
dpkg --root="$root" --log="$tmp/dpkg.log" --force-depends --force-not-root --force-script-chrootless \
    -i "$deb" >"$tmp/dpkg.out" 2>&1 || { cat "$tmp/dpkg.out" >&2; fail "dpkg could not install the package"; }
dpkg --root="$root" -s jorvane 2>/dev/null | grep -q '^Status: install ok installed' ||
    fail "dpkg does not list jorvane as installed"

[ -x "$root/usr/bin/jorvane" ] || fail "usr/bin/jorvane missing or not executable"
# The program looks for its resources at <bin>/../share/jorvane.
[ -s "$root/usr/share/jorvane/DefaultPreferences.json" ] || fail "usr/share/jorvane/DefaultPreferences.json missing"
# The program knows the package manager's files as such: never moved or deleted by itself.
[ "$(head -n 1 "$root/usr/share/jorvane/installed-files")" = "jorvane-installed-files 1 package" ] ||
    fail "usr/share/jorvane/installed-files does not mark a package install"
grep -qx 'bin/jorvane' "$root/usr/share/jorvane/installed-files" || fail "the manifest does not list bin/jorvane"
# Debian's own checks of the package: no error and no warning.
lintian --allow-root --fail-on error,warning "$deb" >"$tmp/lintian.log" 2>&1 ||
    { cat "$tmp/lintian.log" >&2; fail "lintian found problems"; }
[ -s "$root/usr/share/man/man1/jorvane.1.gz" ] || fail "usr/share/man/man1/jorvane.1.gz missing"
zcat "$root/usr/share/man/man1/jorvane.1.gz" | grep -q 'preferences' || fail "the man page lacks the options"
metainfo=$root/usr/share/metainfo/org.jorvane.Jorvane.metainfo.xml
[ -f "$metainfo" ] || fail "usr/share/metainfo/org.jorvane.Jorvane.metainfo.xml missing"
appstreamcli validate --no-net "$metainfo" >"$tmp/appstream.log" 2>&1 ||
    { cat "$tmp/appstream.log" >&2; fail "the AppStream metadata is not valid"; }
desktop=$root/usr/share/applications/jorvane.desktop
[ -f "$desktop" ] || fail "usr/share/applications/jorvane.desktop missing"
desktop-file-validate "$desktop" >"$tmp/validate.log" 2>&1 || { cat "$tmp/validate.log" >&2; fail "invalid .desktop"; }
! grep -q -e 'error:' -e 'warning:' "$tmp/validate.log" || { cat "$tmp/validate.log" >&2; fail "invalid .desktop"; }
grep -qx 'Exec=jorvane' "$desktop" || fail ".desktop does not start jorvane"
grep -qx 'Icon=jorvane' "$desktop" || fail ".desktop does not name the jorvane icon"
icon=$root/usr/share/icons/hicolor/scalable/apps/jorvane.svg
[ -f "$icon" ] && grep -q '<svg' "$icon" || fail "icon missing or not SVG"

# The installed program on the system's libraries, without a display.
set +e
env -u DISPLAY -u WAYLAND_DISPLAY -u XDG_SESSION_TYPE -u LD_LIBRARY_PATH \
    "$root/usr/bin/jorvane" >"$tmp/run.out" 2>"$tmp/run.err" </dev/null
code=$?
set -e
[ "$code" -eq 2 ] || { cat "$tmp/run.err" >&2; fail "installed jorvane exited with $code without a display, not 2"; }
grep -q 'no X display' "$tmp/run.err" || { cat "$tmp/run.err" >&2; fail "installed jorvane did not say there is no X display"; }

echo "package_test: $(basename "$deb") installs and runs ($(du -k "$deb" | cut -f1) KiB)"
