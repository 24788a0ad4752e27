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
# command $2 succeeds (polled for 3 s after each press, at most 3 presses):
# the dialog's completer may open its list late and take a press.
savefile() {
    local i j
    focus "$1"
    keys ctrl+a
    xdotool type --delay 10 "$3"
    for ((i = 0; i < 3; i++)); do
        keys Return
        for ((j = 0; j < 30; j++)); do
            eval "$2" && return 0
            sleep 0.1
        done
    done
    fail "the file dialog did not take $3"
}
