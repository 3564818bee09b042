#!/usr/bin/env bash
# Builds the fuzz preset and runs lumora_edit_fuzzer for a while (default 600
# seconds), starting from the seed corpus. A failing input is kept in
# build/fuzz/artifacts/ and fuzzing goes on; minimise it, fix what it finds and
# keep it in the corpus as regression-<what it found>. Afterwards the inputs that reach new code are merged into
# fuzz/corpus/edit/ (review the count before committing them: a long run adds
# thousands).
#
#   fuzz/run.sh [seconds]
#
# The machine is shared: the fuzzer runs on one core at low priority.
set -euo pipefail
cd "$(dirname "$0")/.."
seconds="${1:-600}"

cmake --preset fuzz >/dev/null
cmake --build --preset fuzz -j2

build=build/fuzz
mkdir -p "$build/new-corpus" "$build/artifacts"
nice -n 10 "$build/fuzz/lumora_edit_fuzzer" -fork=1 -ignore_crashes=1 -ignore_timeouts=1 \
  -max_total_time="$seconds" -max_len=2048 -timeout=10 -rss_limit_mb=2048 \
  -artifact_prefix="$build/artifacts/" -print_final_stats=1 \
  "$build/new-corpus" fuzz/corpus/edit || status=$?

# Keep only what adds coverage to the corpus in the repository.
nice -n 10 "$build/fuzz/lumora_edit_fuzzer" -merge=1 fuzz/corpus/edit "$build/new-corpus"
exit "${status:-0}"
