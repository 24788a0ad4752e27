#!/usr/bin/env bash
# End to end: recording the raw stream from the real viewer. Starts the viewer
# with a private settings location, picks File > "Record capture ..." with
# xdotool, names the file in its dialog, lets the simulator send 3 s of lines
# to port 6101 and exit, and unchecks the entry again. The capture must hold
# exactly the datagrams the simulator reported sending, in order, byte for
# byte: the simulator's output is the same for the same options, so a second
# run with the same options into vxscanner-capture is the reference (only the
# message numbers may differ, where a once-a-second file header fell between
# other lines). tshark decodes it with the project's dissector, and it replays
# with vxscanner-replay. Screenshots are kept in the artifacts folder.
#
# usage: e2e_record.sh <vxlindral> <vxscanner-sim> <vxscanner-capture> <vxscanner-replay> <artifacts-dir>
set -euo pipefail

viewer=$1 sim=$2 capture=$3 replay=$4 art=$5
# On a screen of its own without key auto-repeat: on a busy machine a key
# held a little long by xdotool would be typed twice into a file name.
if [ -z "${VX_E2E_SCREEN:-}" ]; then
    VX_E2E_SCREEN=1 exec xvfb-run -a -s "-screen 0 1280x1024x24 -r" "$0" "$@"
fi
unset QT_QPA_PLATFORM
for tool in xdotool import tshark; do
    command -v "$tool" >/dev/null || { echo "error: $tool is missing" >&2; exit 1; }
done

mkdir -p "$art"
rm -f "$art"/record-*
work=$(mktemp -d)
export XDG_CONFIG_HOME=$work/config HOME=$work
conf=$XDG_CONFIG_HOME/vx/VxLindral.conf
# Explicit options: the check does not depend on the simulator's defaults.
simopts=(--host 127.0.0.1 --scene street --rate 200 --pixels 256 --protocol 1.2 --bpp 8 --count 600)

viewerpid= cappid=
cleanup() {
    [ -n "$viewerpid" ] && kill "$viewerpid" 2>/dev/null || true
    [ -n "$cappid" ] && kill "$cappid" 2>/dev/null || true
    wait 2>/dev/null || true
    rm -rf "$work"
}
trap cleanup EXIT

failshot=record-failure
. "$(dirname "$0")/e2elib.sh"
# File > "Record capture ..." (the menu's second entry) from the keyboard.
recordentry() {
    focus "$main"
    keys alt
    keys Down Down Return
}
# The datagrams of a capture to `port`, one hex line each, the message number
# (framing bytes 4..7) blanked.
payloads() {
    tshark -r "$1" -Y "udp.dstport == $2" -T fields -e udp.payload 2>/dev/null |
        awk '{ print substr($0, 1, 8) "........" substr($0, 17) }'
}
# Raw lines start with kind 1 at message byte 0 (datagram byte 16).
lines() { grep -c '^.\{32\}01000000' "$1" || true; }

step "start the viewer and record through File > Record capture ..."
"$viewer" >"$art/record-viewer.log" 2>&1 &
viewerpid=$!
main=$(window '^Vx Lindral')
xdotool windowsize "$main" 1260 1000
focus "$main"
sleep 1
recorded=$work/out/live.pcapng
mkdir -p "$work/out"
recordentry
dialog=$(window '^Record capture$')
savefile "$dialog" '[ -f "$recorded" ]' "$recorded"

step "the simulator sends 3 s of lines"
"$sim" --port 6101 "${simopts[@]}" >"$art/record-sim.log" 2>&1 || fail "the simulator failed"
summary=$(grep '^total ' "$art/record-sim.log" | tail -1)
sent=$(sed -n 's/^total .* lines, \([0-9]*\) datagrams,.*/\1/p' <<<"$summary")
case $summary in *"send errors"*) fail "the simulator could not send everything: $summary" ;; esac
[ -n "$sent" ] || fail "no datagram count in the simulator's summary: $(tail -1 "$art/record-sim.log")"
sleep 1
import -window "$main" "$art/record-window.png"

step "uncheck the entry; the file is complete"
recordentry
sleep 0.5
cp "$recorded" "$art/record-live.pcapng"

step "the reference: the same options into vxscanner-capture"
reference=$work/out/reference.pcap
"$capture" --port 7101 --out "$reference" >"$art/record-capture.log" 2>&1 &
cappid=$!
sleep 0.5
"$sim" --port 7101 "${simopts[@]}" >"$art/record-sim-reference.log" 2>&1 || fail "the reference run failed"
sleep 0.5
kill -INT "$cappid"
wait "$cappid" || fail "vxscanner-capture failed"
cappid=

step "compare"
payloads "$recorded" 6101 >"$work/live.txt"
payloads "$reference" 7101 >"$work/reference.txt"
got=$(wc -l <"$work/live.txt")
[ "$got" = "$sent" ] || fail "the capture holds $got datagrams, the simulator sent $sent"
[ "$(lines "$work/live.txt")" = 600 ] || fail "$(lines "$work/live.txt") raw lines recorded, want 600"
# Line by line, in order, to the byte.
diff -q <(grep '^.\{32\}01000000' "$work/live.txt") <(grep '^.\{32\}01000000' "$work/reference.txt") \
    >/dev/null || fail "the recorded lines differ from the reference"
# The file header to the byte. The simulator sends it once a second by the
# clock, so how many a run holds depends on how long it took (a busy machine
# stretches one run, not the other): each run holds the same header.
grep -q '^.\{32\}02000000' "$work/live.txt" || fail "no file header recorded"
diff -q <(grep '^.\{32\}02000000' "$work/live.txt" | sort -u) \
    <(grep '^.\{32\}02000000' "$work/reference.txt" | sort -u) >/dev/null ||
    fail "the recorded file headers differ from the reference"
capinfos "$recorded" >"$art/record-capinfos.txt" 2>&1 || fail "capinfos cannot read the capture"

step "tshark decodes the recording with the project's dissector"
dissector=$(cd "$(dirname "$0")/../../tools/wireshark" && pwd)/vxlindral.lua
decoded=$(tshark -n -X lua_script:"$dissector" -r "$recorded" -Y 'vxlindral.kind == 1' \
    -T fields -e vxlindral.series 2>"$art/record-tshark.err" | grep -c . || true)
! grep -q 'Lua Error' "$art/record-tshark.err" || fail "the dissector failed: $(head -3 "$art/record-tshark.err")"
[ "$decoded" = 600 ] || fail "the dissector found $decoded raw lines in the recording, want 600"

step "the capture replays: vxscanner-replay sends the same datagrams again"
replayed=$work/out/replayed.pcap
"$capture" --port 7102 --out "$replayed" >"$art/record-capture-replay.log" 2>&1 &
cappid=$!
sleep 0.5
"${replay}" --fast --to-port 7102 "$recorded" >"$art/record-replay.log" 2>&1 || fail "the replay failed"
sleep 0.5
kill -INT "$cappid"
wait "$cappid" || fail "vxscanner-capture failed on the replay"
cappid=
payloads "$replayed" 7102 | cmp -s - "$work/live.txt" || fail "the replay sent other datagrams"
grep -q 'nanoseconds' "$art/record-capinfos.txt" || fail "timestamps are not in nanoseconds"

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
grep -qx "Capture=$work/out" <(sed -n '/^\[Path\]/,/^\[/p' "$conf") ||
    fail "the folder was not remembered under Path/Capture"
echo "PASS: e2e record ($sent datagrams recorded, 600 lines as the reference)"
