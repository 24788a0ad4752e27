# Helpers of the end-to-end tests, sourced by them: steps, failing with a
# screenshot, and driving windows with xdotool (there is no window manager:
# the keyboard is given to a window explicitly). The sourcing script sets
# `art`, the artifacts folder, and may set `failshot`, the name of the
# screenshot taken on failure.

step() { echo "== $*"; }
fail() {
    echo "FAIL: $*" >&2
    import -window root "$art/${failshot:-failure}.png" 2>/dev/null || true
    exit 1
}
# Waits up to 20 s for a window whose title matches the regular expression;
# prints its id. Polled: a search can fail at once when windows come and go
# while it runs.
window() {
    local id i
    for ((i = 0; i < 200; i++)); do
        id=$(timeout 5 xdotool search --onlyvisible --name "$1" 2>/dev/null | head -1) || true
        [ -n "$id" ] && { echo "$id"; return 0; }
        sleep 0.1
    done
    fail "no window '$1' appeared"
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
# Types a file name into the file dialog $1 and presses Return until the
# command $2 succeeds (polled for 5 s after each press, at most 4 presses):
# the dialog's completer may open its list late and take a press, and a slow
# machine may lose keys typed before the dialog had the focus, so the name is
# typed afresh for the third press.
savefile() {
    local i j
    for ((i = 0; i < 4; i++)); do
        if timeout 5 xdotool search --onlyvisible --name . 2>/dev/null | grep -qx "$1"; then
            focus "$1"
            if [ "$i" = 0 ] || [ "$i" = 2 ]; then
                keys ctrl+a
                xdotool type --delay 10 "$3"
            fi
            keys Return
        fi
        for ((j = 0; j < 50; j++)); do
            eval "$2" && return 0
            sleep 0.1
        done
    done
    ls -la "$(dirname "$3")" >&2 || true
    fail "the file dialog did not take $3"
}
