#!/usr/bin/env bash
# Installs what is missing, builds every variant and runs every test headless:
#   1. ASan+UBSan build of the parts without widgets (library, reception, models)
#   2. TSan build, threaded tests
#   3. clang build of the libFuzzer targets, each run for 30 s from the seeds in
#      tests/fuzz/seeds (scripts/fuzz.sh SECONDS runs them longer)
#   4. ASan+UBSan build of the window's lifetime test, run under Xvfb
#   5. the plain build with every test, GUI tests included, under Xvfb
# The last lines are CTest's summary of step 5.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
# The tests open the viewer's own ports (6101, 6102) and others on loopback.
# In a network namespace of their own (where the system allows one: root or
# unprivileged user namespaces), a viewer or another test run on this machine
# cannot take a port from them, nor they from it.
if [ -z "${VX_OWN_NETWORK:-}" ] && command -v unshare >/dev/null && command -v ip >/dev/null &&
    unshare -n true 2>/dev/null; then
    export VX_OWN_NETWORK=1
    exec unshare -n sh -c 'ip link set lo up && exec bash "$0"' "$0"
fi
unset QT_QPA_PLATFORM
root=$PWD

echo "== ASan+UBSan build (no widgets)"
scripts/build.sh build-asan -DCMAKE_BUILD_TYPE=Debug -DVX_SANITIZE=address -DVX_WITH_GUI=OFF
(cd build-asan &&
    ASAN_OPTIONS=detect_leaks=1:abort_on_error=1:strict_string_checks=1 \
    UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
    ctest --output-on-failure -LE 'fuzz|e2e')

echo "== TSan build, threaded tests"
scripts/build.sh build-tsan -DCMAKE_BUILD_TYPE=RelWithDebInfo -DVX_SANITIZE=thread -DVX_WITH_GUI=OFF
(cd build-tsan &&
    TSAN_OPTIONS="halt_on_error=1 second_deadlock_stack=1 suppressions=$root/tests/tsan.supp" \
    setarch "$(uname -m)" -R ctest --output-on-failure -L threads)

echo "== clang libFuzzer targets"
CC=clang CXX=clang++ scripts/build.sh build-fuzz -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DVX_WITH_QT=ON -DVX_WITH_GUI=OFF -DVX_FUZZ=ON -DVX_BUILD_BENCH=OFF
(cd build-fuzz && ctest --output-on-failure -L fuzz)

echo "== ASan+UBSan build of the window, its lifetime test under Xvfb"
# Closing, opening and quitting during a seek, an index, an export and a
# recording: a use of a deleted object fails here. Only this test's targets
# are built; leaks are not checked (Mesa and dbus keep theirs on purpose).
VX_TARGET=tst_capturelifetime scripts/build.sh build-asan-gui -DCMAKE_BUILD_TYPE=Debug \
    -DVX_SANITIZE=address -DVX_BUILD_BENCH=OFF
(cd build-asan-gui &&
    ASAN_OPTIONS=detect_leaks=0:abort_on_error=1 \
    UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
    xvfb-run -a -s "-screen 0 1280x1024x24" ctest --output-on-failure -L lifetime)

echo "== Full build, all tests under Xvfb"
scripts/build.sh build
cd build
xvfb-run -a -s "-screen 0 1280x1024x24" ctest --output-on-failure
