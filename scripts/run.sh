#!/usr/bin/env bash
# Builds Jorvane and runs it. In an X session (DISPLAY set) it starts there
# and stays in the background beside Thunar. Without one it starts a
# self-contained virtual desktop (Xvfb, openbox, Thunar, Jorvane), plays a
# short scripted tour and writes screenshots to the folder it names.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/deps.sh run

cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >build.configure.log 2>&1 \
  || { cat build.configure.log; exit 1; }
cmake --build build -j"$(nproc)" --target jorvane

if [ -n "${DISPLAY:-}" ] && xdpyinfo >/dev/null 2>&1; then
  echo "Starting Jorvane on $DISPLAY. Click a Thunar window's title, or press Ctrl+G in Thunar."
  exec build/bin/jorvane "$@"
fi

if [ -x scripts/tour.sh ]; then
  exec scripts/tour.sh build/bin/jorvane
fi
echo "run.sh: no X display, and the virtual desktop tour is not available in this build." >&2
exit 2
