#!/usr/bin/env bash
# fuzz.sh SECONDS [TARGET...]: builds the fuzz configuration (clang,
# libFuzzer, ASan+UBSan, every project library instrumented) and runs each
# target (all of them unless named: batch_loader, client_frames, field_text, mime_keys, templates) for
# SECONDS over its corpus in fuzz/corpus/TARGET. Inputs that reach new code
# are merged into the corpus with -merge=1, so only those adding coverage are
# kept; rename them to say what they exercise before committing. Prints the
# coverage (edges) at the start and the end of each run; exits nonzero if a
# target crashed, leaving the reproducer under build/fuzz-runs/TARGET/.
# FUZZ_BUILD names another build folder, FUZZ_JOBS the build's parallelism.
# Leaks are reported and stop a run, except those tests/lsan.supp names (a
# leak inside Qt's JSON parser, described there), which LSAN_OPTIONS passes.
# The suppression names a frame that only a full, deep unwind of each
# allocation sees, so the targets that feed Qt's JSON parser (templates,
# client_frames) run
# with fast_unwind_on_malloc=0 and malloc_context_size=255: several times
# fewer executions per second.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
usage() { echo "usage: $0 SECONDS [batch_loader|client_frames|field_text|mime_keys|templates ...]" >&2; exit 2; }
[ $# -ge 1 ] || usage
seconds=$1; shift
[[ "$seconds" =~ ^[1-9][0-9]*$ ]] || usage
all=(batch_loader client_frames field_text mime_keys templates)
targets=()
for t in "$@"; do
  t=${t%_fuzz}
  [[ " ${all[*]} " == *" $t "* ]] || { echo "$0: unknown target '$t'" >&2; usage; }
  targets+=("$t")
done
[ ${#targets[@]} -gt 0 ] || targets=("${all[@]}")

build=${FUZZ_BUILD:-$root/build/fuzz}
runs=$root/build/fuzz-runs
mkdir -p "$build" "$runs"
if [ ! -f "$build/CMakeCache.txt" ]; then
  CC=clang CXX=clang++ cmake -S "$root" -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DDIRECTORY_BUILD_FUZZ=ON -DDIRECTORY_SANITIZE=address,undefined > "$build.configure.log" 2>&1 \
    || { cat "$build.configure.log"; exit 1; }
fi
cmake --build "$build" -j "${FUZZ_JOBS:-$(nproc)}" --target "${targets[@]/%/_fuzz}"

export QT_QPA_PLATFORM=offscreen
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1}
export LSAN_OPTIONS="suppressions=$root/tests/lsan.supp${LSAN_OPTIONS:+:$LSAN_OPTIONS}"
failed=()
summary=()
for t in "${targets[@]}"; do
  bin=$build/fuzz/${t}_fuzz
  corpus=$root/fuzz/corpus/$t
  work=$runs/$t
  # New inputs land in a scratch folder first; the corpus only gains what
  # the merge below finds adds coverage.
  rm -rf "$work"
  mkdir -p "$work/new"
  log=$work/fuzz.log
  echo "== $t: $seconds s, corpus $corpus ($(ls "$corpus" | wc -l) inputs); log $log"
  status=0
  crashes=0
  asan=${ASAN_OPTIONS:-}
  case $t in templates|client_frames) asan="fast_unwind_on_malloc=0:malloc_context_size=255${asan:+:$asan}" ;; esac
  deadline=$((SECONDS + seconds))
  : > "$log"
  # A crash stops libFuzzer: fuzz on for the rest of the time, starting from
  # what was found so far, so that one fault does not hide the next.
  while left=$((deadline - SECONDS)); [ $left -gt 0 ] && [ $crashes -lt 20 ]; do
    rc=0
    ASAN_OPTIONS=$asan "$bin" -max_total_time="$left" -timeout=10 -print_final_stats=1 \
      -artifact_prefix="$work/" "$work/new" "$corpus" >> "$log" 2>&1 || rc=$?
    [ $rc -ne 0 ] || break
    status=$rc
    crashes=$((crashes + 1))
  done
  start=$(grep -m1 'INITED' "$log" | grep -o 'cov: [0-9]*' | cut -d' ' -f2 || true)
  end=$(grep -o 'cov: [0-9]*' "$log" | tail -1 | cut -d' ' -f2 || true)
  before=$(ls "$corpus" | sort)
  # Counted by edges alone (not hit counts), the merge keeps only inputs
  # that reach code no other input reaches.
  ASAN_OPTIONS=$asan "$bin" -merge=1 -use_counters=0 "$corpus" "$work/new" > "$work/merge.log" 2>&1 \
    || { echo "$t: merge failed, see $work/merge.log" >&2; status=1; }
  added=$(comm -13 <(echo "$before") <(ls "$corpus" | sort) | sed '/^$/d')
  line="$t: cov ${start:-?} -> ${end:-?} edges in $seconds s, $(echo "$added" | sed '/^$/d' | wc -l) new corpus entries"
  if [ $status -ne 0 ]; then
    line="$line, FAILED $crashes time(s) (exit $status): $(ls "$work" | grep -E '^(crash|leak|timeout|oom)-' | tr '\n' ' ')"
    failed+=("$t")
  fi
  echo "$line"
  [ -z "$added" ] || echo "$added" | sed "s|^|  new: fuzz/corpus/$t/|"
  summary+=("$line")
done
echo "== summary"
printf '%s\n' "${summary[@]}"
[ ${#failed[@]} -eq 0 ]
