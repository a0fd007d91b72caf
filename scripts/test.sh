#!/usr/bin/env bash
# Sets up, builds and runs the whole test suite: a normal build, an
# AddressSanitizer + UndefinedBehaviorSanitizer build, and the threading
# tests under ThreadSanitizer.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
"$root/scripts/setup.sh"
mkdir -p "$root/build"
export QT_QPA_PLATFORM=offscreen
"$root/scripts/build.sh" "$root/build/test"
(cd "$root/build/test" && ctest --output-on-failure -j 2)
"$root/scripts/build.sh" "$root/build/asan" -DDIRECTORY_SANITIZE=address,undefined
(cd "$root/build/asan" && ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1 ctest --output-on-failure -j 2)
"$root/scripts/build.sh" "$root/build/tsan" -DDIRECTORY_SANITIZE=thread
(cd "$root/build/tsan" && TSAN_OPTIONS="halt_on_error=1 second_deadlock_stack=1" ctest --output-on-failure -j 2 -R 'Thread|Loader|Frame\.|Contention')
