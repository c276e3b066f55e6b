#!/usr/bin/env bash
# Installs the Debian packages Jorvane needs to build, test and run, when they
# are missing. Usage: scripts/deps.sh [build|test|run]...
set -euo pipefail

build=(cmake ninja-build g++ pkg-config libutf8proc-dev nlohmann-json3-dev
       qt6-base-dev libxcb1-dev libxcb-xinput-dev libxcb-xtest0-dev libxcb-xkb-dev
       libxcb-ewmh-dev libxcb-icccm4-dev libxkbcommon-dev libxkbcommon-x11-dev libatspi2.0-dev
       libcurl4-openssl-dev dpkg-dev)
test=(libgtest-dev libgmock-dev libbenchmark-dev clang-16 libclang-rt-16-dev desktop-file-utils lintian appstream
      python3 openssl libfuse3-dev python3-pyftpdlib openssh-server openssh-client)
desktop=(xvfb xauth openbox xfwm4 thunar dbus-x11 at-spi2-core libglib2.0-bin xfconf x11-utils x11-xserver-utils xdotool imagemagick
         x11-xkb-utils xterm
         gvfs gvfs-backends gvfs-fuse)
# Only for running: the administrator's copy when the program moves itself into /opt.
run_only=(pkexec)

want=()
for set in "${@:-build}"; do
  case "$set" in
    build) want+=("${build[@]}") ;;
    test) want+=("${build[@]}" "${test[@]}" "${desktop[@]}") ;;
    run) want+=("${build[@]}" "${desktop[@]}" "${run_only[@]}") ;;
    *) echo "deps.sh: unknown set '$set'" >&2; exit 2 ;;
  esac
done

missing=()
for pkg in "${want[@]}"; do
  dpkg-query -W -f='${Status}' "$pkg" 2>/dev/null | grep -q 'install ok installed' || missing+=("$pkg")
done
[ ${#missing[@]} -eq 0 ] && exit 0

echo "Installing: ${missing[*]}"
sudo=""
[ "$(id -u)" -eq 0 ] || sudo="sudo"
export DEBIAN_FRONTEND=noninteractive
$sudo apt-get update -qq
$sudo apt-get install -y -qq --no-install-recommends "${missing[@]}"
