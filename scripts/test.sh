#!/usr/bin/env bash
# Sets up, builds and runs the whole test suite: every test in a normal build
# and in an AddressSanitizer + UndefinedBehaviorSanitizer build, and every
# test that starts a thread (its own, or the loader's decoding worker) in a
# ThreadSanitizer build. Such tests carry "Thread" in their name.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
"$root/scripts/setup.sh"
mkdir -p "$root/build"
export QT_QPA_PLATFORM=offscreen
"$root/scripts/build.sh" "$root/build/test"
(cd "$root/build/test" && ctest --output-on-failure -j 2)
"$root/scripts/build.sh" "$root/build/asan" -DDIRECTORY_SANITIZE=address,undefined
# Leaks stop a test, except those of system libraries that tests/lsan.supp names.
(cd "$root/build/asan" && ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1 \
   LSAN_OPTIONS="suppressions=$root/tests/lsan.supp" ctest --output-on-failure -j 2)
"$root/scripts/build.sh" "$root/build/tsan" -DDIRECTORY_SANITIZE=thread
(cd "$root/build/tsan" && TSAN_OPTIONS="halt_on_error=1 second_deadlock_stack=1" ctest --output-on-failure -j 2 -R Thread)
