#!/usr/bin/env bash
# End to end: starts the simulator sending to 127.0.0.1:6101 and the real
# viewer with a private settings location, then drives the viewer with xdotool
# through its shortcuts, menus and dialogs: follows the newest line in the 3D
# view, opens every view, freezes and resumes, exports a line, records for
# about a second, exports the 3D cloud and saves a view image, accepts the
# settings dialog and closes the window. Checks the files and settings
# written (the cloud as Open3D reads it) and that the viewer exits with 0.
# Screenshots are kept in the artifacts folder.
#
# usage: e2e_viewer.sh <vxlindral> <vxscanner-sim> <artifacts-dir>
set -euo pipefail

viewer=$1 sim=$2 art=$3
if [ -z "${DISPLAY:-}" ]; then
    exec xvfb-run -a -s "-screen 0 1280x1024x24" "$0" "$@"
fi
unset QT_QPA_PLATFORM
for tool in xdotool import compare identify; do
    command -v "$tool" >/dev/null || { echo "error: $tool is missing" >&2; exit 1; }
done

mkdir -p "$art"
rm -f "$art"/*.png "$art"/*.log
work=$(mktemp -d)
export XDG_CONFIG_HOME=$work/config
conf=$XDG_CONFIG_HOME/vx/VxLindral.conf
pixels=256

simpid= viewerpid=
cleanup() {
    [ -n "$viewerpid" ] && kill "$viewerpid" 2>/dev/null || true
    [ -n "$simpid" ] && kill "$simpid" 2>/dev/null || true
    wait 2>/dev/null || true
    rm -rf "$work"
}
trap cleanup EXIT

step() { echo "== $*"; }
fail() {
    echo "FAIL: $*" >&2
    import -window root "$art/failure.png" 2>/dev/null || true
    exit 1
}
# Waits for a window whose title matches the regular expression; prints its id.
window() {
    local id
    id=$(timeout 20 xdotool search --sync --onlyvisible --name "$1" 2>/dev/null | head -1) ||
        true
    [ -n "$id" ] || fail "no window '$1' appeared"
    echo "$id"
}
# Gives the keyboard to a window (there is no window manager to do it).
focus() {
    timeout 5 xdotool windowfocus --sync "$1" || fail "could not focus window $1"
    sleep 0.3
}
keys() {
    xdotool key --delay 60 "$@"
    sleep 0.4
}
shot() { import -window root "$art/$1.png"; }
# Number of pixels in which two screenshots differ.
diffpixels() { compare -metric AE "$art/$1.png" "$art/$2.png" null: 2>&1 | cut -d' ' -f1 || true; }
# Waits up to $2 seconds for a file to exist.
waitfile() {
    local i
    for ((i = 0; i < $2 * 10; i++)); do
        [ -s "$1" ] && return 0
        sleep 0.1
    done
    fail "file $1 was not written"
}
# Saves through a file dialog: presses the keys $1 in the main window, gives
# the dialog titled $2 the path $3 and waits for the file.
savefile() {
    local dialog
    focus "$main"
    keys "$1"
    dialog=$(window "$2")
    focus "$dialog"
    keys ctrl+a
    xdotool type --delay 10 "$3"
    keys Return
    waitfile "$3" 5
}
# A line file: "# " header naming range and intensity first, then one row
# of four decimal values per pixel (range in 1/10 mm, intensity 16 bits).
checkline() {
    local f=$1
    [ "$(wc -l <"$f")" -eq $((pixels + 1)) ] || fail "$f: $(wc -l <"$f") lines, want $((pixels + 1))"
    head -1 "$f" | grep -q '^# range intensity' || fail "$f: header is '$(head -1 "$f")'"
    tail -n +2 "$f" | awk -v f="$f" '
        NF != 4 { print f ": row " NR " has " NF " fields"; bad = 1; exit }
        { for (i = 1; i <= 4; i++) if ($i !~ /^[0-9]+$/) { print f ": row " NR " not decimal"; bad = 1; exit } }
        $1 > 16777215 || $2 > 65535 { print f ": row " NR " out of range"; bad = 1; exit }
        $1 > 0 { n++; sum += $1 }
        END {
            if (bad) exit 1
            # The simulated scanner hangs about 1 m above the belt.
            if (n < 10 || sum / n < 7000 || sum / n > 14000) { print f ": mean range " sum / n; exit 1 }
        }' || fail "$f does not hold the simulator's layout"
}
# Opens the Edit menu from the keyboard and picks its second entry
# ("Export lines ..."; the entries have no shortcut of their own).
exportlines() {
    focus "$main"
    keys alt
    keys Right Down Down Return
}

step "start the simulator and the viewer"
"$sim" --host 127.0.0.1 --port 6101 --rate 100 --pixels $pixels >"$art/sim.log" 2>&1 &
simpid=$!
"$viewer" >"$art/viewer.log" 2>&1 &
viewerpid=$!
main=$(window '^Vx Lindral')
xdotool windowsize "$main" 1260 1000
focus "$main"
sleep 1.5
kill -0 "$simpid" || fail "the simulator stopped"

step "F in the 3D view: the cloud stays in the picture"
# The middle of the window is the 3D view's picture (the view is maximised);
# a click there gives it the keyboard. The newest line may already be near
# the right edge; Home brings it to the middle, and following keeps it there.
xdotool mousemove --window "$main" 630 500 click 1
sleep 0.3
keys f
keys ctrl+h
# Left edge and pixel count of the cloud in the middle of the picture: what
# is not the view's clear gray. The camera looks along the scan line, so each
# line reaches from its left end to the picture's right edge; without
# following, the cloud's left edge moves right by about 100 pixels a second.
cloud() {
    convert "$art/$1.png" -crop 1000x700+130+180 +repage -fuzz 2% \
        -fill black -opaque 'rgb(128,128,128)' -fill white +opaque black \
        -format '%@ %[fx:round(mean*w*h)]\n' info: |
        awk '{ split($1, g, /[x+]/); print g[3], $2 }'
}
for s in 0 1 2 3 4 5; do
    [ "$s" = 0 ] || sleep 1
    import -window "$main" "$art/follow-$s.png"
    read -r edge count < <(cloud "follow-$s")
    [ "$count" -ge 300 ] || fail "follow-$s: $count cloud pixels in the picture"
    [ "$s" = 0 ] && first=$edge
    [ "$edge" -le $((first + 30)) ] || fail "follow-$s: the cloud moved right from x $first to $edge"
done
[ "$(diffpixels follow-0 follow-5)" != 0 ] || fail "no new lines while following"

step "freeze, then open every view from its tool-bar shortcut"
keys ctrl+p
sleep 0.6
shot frozen-a
sleep 0.8
shot frozen-b
[ "$(diffpixels frozen-a frozen-b)" = 0 ] || fail "the picture changes while frozen"
prev=frozen-b
for k in alt+n alt+c alt+g alt+i alt+3; do
    keys "$k"
    sleep 0.4
    shot "view-$k"
    [ "$(diffpixels "$prev" "view-$k")" != 0 ] || fail "$k changed nothing"
    prev=view-$k
done

step "tile the five views and resume"
keys ctrl+shift+a
keys ctrl+p
sleep 2
shot all-views-a
sleep 0.6
shot all-views
import -window "$main" "$art/main-window.png" # the window alone, for the README
[ "$(diffpixels all-views-a all-views)" != 0 ] || fail "the views do not update after resuming"

step "export the current line"
line=$work/out/line.txt
mkdir -p "$work/out"
savefile ctrl+e '^Save line to file$' "$line"
checkline "$line"
cp "$line" "$art/exported-line.txt"

step "record for about a second at 100 ms"
start=$work/out/rec.txt
exportlines
dialog=$(window '^Save lines to file')
focus "$dialog"
xdotool type --delay 10 "$start"
keys Return
interval=$(window '^Recording$')
focus "$interval"
keys ctrl+a
xdotool type 100
keys Return
sleep 1.1
exportlines
sleep 0.5
parts=$(ls "$work/out" | grep -c '^rec\.txt-part[0-9]*\.cvs$' || true)
# At least a second of recording (stopping through the menu adds some more).
[ "$parts" -ge 8 ] || fail "$parts part files after more than 1 s at 100 ms"
# One part per 100 ms: the mean gap between the first and the last part.
gap=$(stat -c '%.3Y' "$start-part1.cvs" "$start-part$parts.cvs" |
    awk -v n="$parts" 'NR == 1 { a = $1 } NR == 2 { printf "%d", ($1 - a) * 1000 / (n - 1) }')
[ "$gap" -ge 80 ] && [ "$gap" -le 200 ] || fail "parts written every $gap ms, want 100"
for ((n = 1; n <= parts; n++)); do
    [ -f "$start-part$n.cvs" ] || fail "part $n missing of $parts"
    checkline "$start-part$n.cvs"
done
sleep 0.5
[ "$(ls "$work/out" | grep -c '^rec\.txt-part')" = "$parts" ] || fail "recording went on after stopping"
[ ! -e "$start" ] || fail "the start file itself was written"

step "export the 3D cloud and save a view image"
cloud=$work/out/cloud.ply
savefile ctrl+shift+e '^Save cloud to file$' "$cloud"
# A binary PLY of the points the view held (every line taken in so far,
# thinned to at most 1000 points), read by Open3D with as many points as the
# header announces.
cp "$cloud" "$art/exported-cloud.ply"
/usr/bin/python3 - "$cloud" <<'PY' || fail "$cloud is not the view's cloud"
import re, sys
import numpy as np
import open3d as o3d
path = sys.argv[1]
head = open(path, "rb").read(2000).split(b"end_header\n")[0].decode()
assert head.startswith("ply\nformat binary_little_endian 1.0\n"), head
count = int(re.search(r"element vertex (\d+)", head).group(1))
cloud = o3d.io.read_point_cloud(path)
xyz = np.asarray(cloud.points)
assert count >= 1000 and len(xyz) == count, (count, len(xyz))
assert np.isfinite(xyz).all() and cloud.has_colors()
# Several lines, which the view places 1/250 apart along x.
steps = np.diff(np.unique(xyz[:, 0])) * 250
assert steps.size >= 1 and np.allclose(steps, np.round(steps), atol=0.01), steps
print(f"{path}: {count} points")
PY
image=$work/out/view.png
savefile ctrl+shift+s '^Save view image$' "$image"
size=$(identify -format '%m %w %h' "$image") || fail "$image is no image"
read -r kind w h <<<"$size"
[ "$kind" = PNG ] && [ "$w" -ge 100 ] && [ "$h" -ge 100 ] || fail "$image: $size"
cp "$image" "$art/exported-view.png"
[ "$(ls "$work/out" | grep -c -v -e '^rec\.txt-part' -e '^line\.txt$')" = 2 ] ||
    fail "files besides the exports: $(ls "$work/out")"

step "accept the settings dialog"
focus "$main"
keys ctrl+s
dialog=$(window '^Settings$')
focus "$dialog"
keys Return

step "close the window"
focus "$main"
keys alt
keys Down Up Return # File menu, up to its last entry "Close"
rc=
for ((i = 0; i < 150; i++)); do
    if ! kill -0 "$viewerpid" 2>/dev/null; then
        wait "$viewerpid" && rc=0 || rc=$?
        break
    fi
    sleep 0.1
done
viewerpid_done=$viewerpid
viewerpid=
[ -n "$rc" ] || { kill "$viewerpid_done"; fail "the viewer did not close"; }
[ "$rc" = 0 ] || fail "the viewer exited with $rc"

step "check the settings written"
[ -f "$conf" ] || fail "no settings file $conf"
cp "$conf" "$art/VxLindral.conf"
expect() {
    awk -v sec="[$1]" -v key="$2" -v want="$3" '
        /^\[/ { in_sec = ($0 == sec); next }
        in_sec && index($0, key "=") == 1 { got = substr($0, length(key) + 2) }
        END { if (got != want) { print sec key ": got \"" got "\", want \"" want "\""; exit 1 } }
    ' "$conf" || fail "settings differ"
}
expect View Cut true
expect View ThreeD false
expect View Gray false
expect View Numeric false
expect View Statistic false
expect ThreeD pointsPerLine 1000
expect ThreeD maxPoints 100000
expect ThreeD follow true
expect Path Last "$image"
expect Path Recording "$start"
kill -0 "$simpid" || fail "the simulator stopped early"
echo "PASS: e2e viewer ($parts parts recorded, one per $gap ms; screenshots in $art)"
