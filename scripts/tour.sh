#!/usr/bin/env bash
# A short tour of Jorvane on a virtual desktop of its own, for machines
# without an X session. Usage: scripts/tour.sh [JORVANE_BINARY] [OUTPUT_DIR]
#
# Starts Xvfb, a private D-Bus session with the accessibility bus, openbox,
# Thunar on a demo folder it creates, and Jorvane; then plays the tour (a
# click on the title opens the bar, typing completes inline, Tab shows the
# completion list, Return on a folder shows it, a pattern selects every match,
# Ctrl+G opens the bar again, its context menu opens the preferences) and writes a screenshot of each step to
# OUTPUT_DIR (a new folder under /tmp by default), named at the end. Stops
# everything it started, also on failure or Ctrl+C. Needs no network.
set -euo pipefail

binary=${1:-build/bin/jorvane}
[ -x "$binary" ] || { echo "tour.sh: no Jorvane program at $binary (build it first)" >&2; exit 2; }
binary=$(realpath "$binary")
for tool in Xvfb dbus-daemon dbus-send openbox thunar xfconf-query xdotool xprop xwininfo import; do
  command -v "$tool" >/dev/null || { echo "tour.sh: $tool is missing (scripts/deps.sh run installs it)" >&2; exit 2; }
done
launcher=/usr/libexec/at-spi-bus-launcher
[ -x "$launcher" ] || { echo "tour.sh: $launcher is missing (install at-spi2-core)" >&2; exit 2; }

work=$(mktemp -d /tmp/jorvane-tour-XXXXXX)
shots=${2:-$(mktemp -d /tmp/jorvane-tour-screenshots-XXXXXX)}
mkdir -p "$shots"
pids=()
# Every program started here, and every one they start in turn, carries this
# mark: the clean-up finds the helpers D-Bus started (xfconfd, gvfsd) by it.
export JORVANE_TOUR_SESSION
JORVANE_TOUR_SESSION=$(basename "$work")

marked_pids() {
  local environ pid
  for environ in /proc/[0-9]*/environ; do
    pid=${environ#/proc/}; pid=${pid%/environ}
    [ "$pid" = "$$" ] && continue
    { tr '\0' '\n' <"$environ"; } 2>/dev/null | grep -qx "JORVANE_TOUR_SESSION=$JORVANE_TOUR_SESSION" && echo "$pid"
  done
  return 0
}

cleanup() {
  local status=$? pid i left
  trap - EXIT INT TERM
  # The programs started here, last first, then whatever they started.
  for ((i = ${#pids[@]} - 1; i >= 0; i--)); do kill "${pids[i]}" 2>/dev/null || true; done
  for pid in $(marked_pids); do kill "$pid" 2>/dev/null || true; done
  for _ in $(seq 1 50); do
    left=$(marked_pids)
    [ -z "$left" ] && break
    sleep 0.1
  done
  for pid in $(marked_pids); do kill -KILL "$pid" 2>/dev/null || true; done
  wait 2>/dev/null || true
  if [ "$status" -ne 0 ]; then
    # The programs' own words, for finding out what went wrong.
    cp "$work"/*.log "$shots/" 2>/dev/null || true
  else
    cp "$work/jorvane.log" "$shots/jorvane.log" 2>/dev/null || true
  fi
  rm -rf "$work"
  if [ "$status" -ne 0 ]; then
    echo "tour.sh: the tour stopped early (status $status); what it has is in $shots" >&2
  fi
  exit "$status"
}
trap cleanup EXIT
trap 'exit 130' INT
trap 'exit 143' TERM

# Waits (bounded) until the command succeeds.
wait_for() { # what, seconds, command...
  local what=$1 seconds=$2; shift 2
  local tries=$((seconds * 20))
  for _ in $(seq 1 "$tries"); do
    "$@" >"$work/last-wait.log" 2>&1 && return 0
    sleep 0.05
  done
  echo "tour.sh: $what did not happen within $seconds s: $(tail -n 3 "$work/last-wait.log")" >&2
  return 1
}

start() { # log name, program...
  local log=$1; shift
  "$@" </dev/null >"$work/$log.log" 2>&1 &
  pids+=($!)
}

shot() {
  import -display "$DISPLAY" -window root "$shots/$1.png"
  echo "  $1.png"
}

# ---- the session, in a home of its own
mkdir -p "$work/home/.config" "$work/home/.cache" "$work/home/.local/share" "$work/run"
chmod 700 "$work/run"
export HOME=$work/home XDG_CONFIG_HOME=$work/home/.config XDG_CACHE_HOME=$work/home/.cache
export XDG_DATA_HOME=$work/home/.local/share XDG_RUNTIME_DIR=$work/run
export LANG=C.UTF-8 GDK_BACKEND=x11
unset NO_AT_BRIDGE AT_SPI_BUS_ADDRESS WAYLAND_DISPLAY SESSION_MANAGER XAUTHORITY

echo "Starting a virtual desktop in $work"
# -displayfd: Xvfb picks a free display and writes its number. -noreset: the
# server keeps its root properties (the accessibility bus address) when its
# last client leaves.
Xvfb -displayfd 3 -screen 0 1280x800x24 -nolisten tcp -noreset 3>"$work/display" </dev/null >"$work/xvfb.log" 2>&1 &
pids+=($!)
wait_for "Xvfb" 20 grep -q '[0-9]' "$work/display"
export DISPLAY=":$(head -n 1 "$work/display")"

# The bus prints its address once it takes connections.
dbus-daemon --session --nofork --nopidfile --address="unix:path=$work/run/bus" --print-address=3 \
  3>"$work/bus-address" </dev/null >"$work/dbus.log" 2>&1 &
pids+=($!)
wait_for "the D-Bus session bus" 20 grep -q unix: "$work/bus-address"
export DBUS_SESSION_BUS_ADDRESS
DBUS_SESSION_BUS_ADDRESS=$(head -n 1 "$work/bus-address")

# Thunar's accessibility bridge talks to the bus this launcher starts.
start at-spi "$launcher" --launch-immediately
wait_for "the accessibility bus" 20 sh -c 'xprop -root AT_SPI_BUS | grep unix:'

start openbox openbox --sm-disable
wait_for "openbox" 20 sh -c 'xprop -root _NET_SUPPORTING_WM_CHECK | grep -q "window id"'

xfconf-query -c thunar -p /misc-full-path-in-window-title -n -t bool -s true
xfconf-query -c thunar -p /default-view -n -t string -s ThunarIconView

demo=$work/demo
mkdir -p "$demo/Documents" "$demo/Music" "$demo/Pictures" "$demo/Projects"
for f in notes.txt report.txt todo.txt budget.ods; do echo "$f" >"$demo/$f"; done
for f in plan.txt ideas.txt minutes.txt logo.png draft.odt; do echo "$f" >"$demo/Projects/$f"; done

has_thunar_name() {
  dbus-send --session --print-reply --dest=org.freedesktop.DBus /org/freedesktop/DBus \
    org.freedesktop.DBus.NameHasOwner string:org.xfce.FileManager | grep -q 'boolean true'
}
start thunar thunar --daemon
wait_for "Thunar" 20 has_thunar_name
thunar "$demo"
wait_for "Thunar's window" 20 xdotool search --name "^$demo - Thunar\$"
window=$(xdotool search --name "^$demo - Thunar\$" | head -n 1)

# The tour's home is past the first launch: no welcome alert holds it up.
mkdir -p "$XDG_CONFIG_HOME/jorvane"
echo '{"notfirstlaunch": true}' >"$XDG_CONFIG_HOME/jorvane/settings.json"
JORVANE_LOG=info "$binary" </dev/null >"$work/jorvane.log" 2>&1 &
pids+=($!)
wait_for "Jorvane's start" 20 grep -q "running beside Thunar" "$work/jorvane.log"

bar_shown() { xdotool search --onlyvisible --classname '^jorvane$' >/dev/null; }
title_is() { [ "$(xdotool getwindowname "$window")" = "$1" ]; }

# ---- the tour
echo "Playing the tour; screenshots:"
xdotool windowactivate --sync "$window"
X=$(xwininfo -id "$window" | sed -n 's/.*Absolute upper-left X: *//p')
Y=$(xwininfo -id "$window" | sed -n 's/.*Absolute upper-left Y: *//p')
WIDTH=$(xwininfo -id "$window" | sed -n 's/.*Width: *//p')
read -r _ _ top _ < <(xprop -id "$window" _NET_FRAME_EXTENTS | sed 's/.*= //; s/,//g')
# The middle of the title: a click there opens the bar over it.
xdotool mousemove $((X + WIDTH / 2)) $((Y - top / 2)) click 1
wait_for "the bar" 10 bar_shown
sleep 0.3
shot 01-bar-over-the-title

# Typing a name completes it inline and selects the item in Thunar.
xdotool type --delay 120 "Proj"
sleep 0.6
shot 02-inline-completion

# The whole folder as candidates: the field holds "<folder>/", Tab lists them.
xdotool key ctrl+a
xdotool type --delay 20 "$demo/"
sleep 0.3
xdotool key BackSpace  # drops the inline completion, keeps the "/"
xdotool key Tab
sleep 0.6
shot 03-completion-list

# Return on a folder: the same window shows it.
xdotool key Escape
xdotool key ctrl+a
xdotool type --delay 20 "$demo/Projects"
xdotool key Return
wait_for "Thunar showing Projects" 10 title_is "$demo/Projects - Thunar"
sleep 0.4
shot 04-return-on-a-folder

# A pattern selects every match.
xdotool key ctrl+a
xdotool type --delay 60 "*.txt"
xdotool key Return
sleep 1.2
shot 05-pattern-selects-every-match

# Escape closes the bar; Ctrl+G in Thunar opens it again.
xdotool key Escape
sleep 0.3
xdotool keydown ctrl key g keyup ctrl
wait_for "the bar after Ctrl+G" 10 bar_shown
sleep 0.3
shot 06-ctrl-g

# The bar's context menu ends with "Jorvane Preferences…": the preferences
# window with the hot-key recorder.
bar=$(xdotool search --onlyvisible --classname '^jorvane$' | head -n 1)
BX=$(xwininfo -id "$bar" | sed -n 's/.*Absolute upper-left X: *//p')
BY=$(xwininfo -id "$bar" | sed -n 's/.*Absolute upper-left Y: *//p')
BW=$(xwininfo -id "$bar" | sed -n 's/.*Width: *//p')
BH=$(xwininfo -id "$bar" | sed -n 's/.*Height: *//p')
xdotool mousemove $((BX + BW / 2)) $((BY + BH / 2)) click 3
sleep 0.5
xdotool key Up Return
wait_for "the preferences window" 10 xdotool search --onlyvisible --name '^Jorvane Preferences$'
sleep 0.5
shot 07-preferences

echo "The tour's screenshots are in $shots"
