#!/usr/bin/env bash
# End to end: a capture played in the real viewer. The simulator sends 40
# lines to port 6101 and vxscanner-capture records them; the viewer is then
# started with the file on its command line (with the 3D and info views as
# default views) and driven with the transport bar's keys and a click on its
# slider. Paused on a line, nothing on screen moves, so the whole window's
# picture tells which line is shown (the info view's frame number and text,
# the 3D cloud of the lines up to it, the transport bar's and the status
# line's place): every jump (to the start, one line back, a click in the
# middle of the slider) must show exactly what stepping forward line by line
# from the start shows on the same line, and the line exported there must be
# the same text.
#
# usage: e2e_playback.sh <vxlindral> <vxscanner-sim> <vxscanner-capture> <artifacts-dir>
set -euo pipefail

viewer=$1 sim=$2 capture=$3 art=$4
# On a screen of its own without key auto-repeat: on a busy machine a key
# held a little long by xdotool would be typed twice into a file name.
if [ -z "${VX_E2E_SCREEN:-}" ]; then
    VX_E2E_SCREEN=1 exec xvfb-run -a -s "-screen 0 1280x1024x24 -r" "$0" "$@"
fi
unset QT_QPA_PLATFORM
for tool in xdotool import compare; do
    command -v "$tool" >/dev/null || { echo "error: $tool is missing" >&2; exit 1; }
done

mkdir -p "$art"
rm -f "$art"/playback-*
work=$(mktemp -d)
export XDG_CONFIG_HOME=$work/config HOME=$work
mkdir -p "$XDG_CONFIG_HOME/vx" "$work/out"
printf '[View]\nStatistic=true\nThreeD=true\n' >"$XDG_CONFIG_HOME/vx/VxLindral.conf"
lines=40

viewerpid= cappid=
cleanup() {
    [ -n "$viewerpid" ] && kill "$viewerpid" 2>/dev/null || true
    [ -n "$cappid" ] && kill "$cappid" 2>/dev/null || true
    wait 2>/dev/null || true
    rm -rf "$work"
}
trap cleanup EXIT

failshot=playback-failure
. "$(dirname "$0")/e2elib.sh"
shot() {
    sleep 1.2 # the status line's place is refreshed twice a second
    import -window "$main" "$art/playback-$1.png"
}
same() { compare -metric AE "$art/playback-$1.png" "$art/playback-$2.png" null: >/dev/null 2>&1; }
# Exports the line shown to $1 (Ctrl+E and its file dialog).
export_line() {
    focus "$main"
    keys ctrl+e
    savefile "$(window '^Save line to file$')" "[ -s '$1' ]" "$1"
    focus "$main"
}

step "record $lines lines of the simulator with vxscanner-capture"
scan=$work/scan.pcap
"$capture" --port 6101 --out "$scan" >"$art/playback-capture.log" 2>&1 &
cappid=$!
sleep 0.5
"$sim" --port 6101 --rate 20 --pixels 512 --count "$lines" >"$art/playback-sim.log" 2>&1 ||
    fail "the simulator failed"
sleep 0.5
kill -INT "$cappid"
wait "$cappid" || fail "vxscanner-capture failed"
cappid=

step "open the capture from the command line; it plays at once"
"$viewer" "$scan" >"$art/playback-viewer.log" 2>&1 &
viewerpid=$!
main=$(window '^Vx Lindral')
xdotool windowsize "$main" 1240 760 # wide enough that its middle lies well inside the slider
focus "$main"
sleep 1 # the views are sub-windows, not windows of their own: nothing to wait for

# Export line takes the port of the first view in the window's child order,
# and activating a view raises it to the end of that order: a click on the
# title bars of port 6101's two views (the upper left and right quarter of
# the lower half, as the four views are tiled) leaves the capture's 3D view
# first.
read -r x y w h < <(xdotool getwindowgeometry --shell "$main" |
    awk -F= '/^X=/{x=$2} /^Y=/{y=$2} /^WIDTH=/{w=$2} /^HEIGHT=/{h=$2} END{print x, y, w, h}')
for column in 1 3; do
    xdotool mousemove $((x + w * column / 4)) $((y + 393)) click 1
    sleep 0.3
done
xdotool mousemove $((x + 5)) $((y + 5)) # no hover highlight in the pictures

step "pause (a step pauses), to the start, export the first line"
keys period ctrl+Home
shot start
export_line "$work/out/line0.txt"

step "step forward one line at a time; each line looks different"
keys period
shot step1
same start step1 && fail "one line forward shows the same as the first line"
for ((k = 2; k <= 5; k++)); do
    keys period
    shot "step$k"
done
export_line "$work/out/line5.txt"

step "one line back and on again"
keys comma
shot back4
same back4 step4 || fail "one line back does not show what stepping to that line showed"
keys period
shot again5
same again5 step5 || fail "stepping on after a step back differs"

step "to the end and back to the start"
keys ctrl+End
shot end
same end step5 && fail "the end shows the same as line 5"
keys ctrl+Home
shot start2
same start2 start || fail "back at the start differs from the first look at it"

step "Space plays and pauses"
# The capture lasts 2 s: where the second Space comes late (a busy machine)
# the capture may reach its end first; then it is tried again from the start.
for ((try = 0; try < 3; try++)); do
    [ "$try" = 0 ] || { keys ctrl+Home; sleep 1; }
    keys space
    sleep 0.5
    keys space
    shot played
    same played start2 && fail "Space did not play on"
    same played end || break
done
same played end && fail "Space did not pause"

step "a click in the middle of the slider"
xdotool mousemove $((x + w / 2)) $((y + h - 14)) click 1
sleep 0.3
xdotool mousemove $((x + 5)) $((y + 5)) # no hover highlight in the pictures
shot middle
export_line "$work/out/middle.txt"

step "step from the start to the line the click showed"
keys ctrl+Home
found=
for ((k = 1; k < lines; k++)); do
    keys period
    shot "walk$k"
    if same "walk$k" middle; then
        found=$k
        break
    fi
done
[ -n "$found" ] || fail "no line stepped to shows what the click in the middle showed"
# The slider is a time line and the click lands at the window's middle, not
# exactly the slider's: which line that is depends on how evenly the
# simulator sent its lines (unevenly on a busy machine). It must be neither
# end.
echo "the click in the middle of the slider showed line $found of $lines"
((found > 1 && found < lines - 2)) || fail "the middle of the slider showed line $found"
export_line "$work/out/walked.txt"
cmp -s "$work/out/middle.txt" "$work/out/walked.txt" ||
    fail "the line exported after the click differs from line $found exported after stepping"
cmp -s "$work/out/line0.txt" "$work/out/line5.txt" && fail "lines 0 and 5 exported the same text"

step "close the viewer"
focus "$main"
keys alt
keys Down Up Return # File menu, up to its last entry "Close"
for ((i = 0; i < 150; i++)); do
    kill -0 "$viewerpid" 2>/dev/null || break
    sleep 0.1
done
wait "$viewerpid" || fail "the viewer exited with $?"
viewerpid=
echo "PASS: e2e playback (the click showed line $found of $lines, as stepping there does)"
