#!/usr/bin/env bash
# Replays each fuzz target's seed corpus, then fuzzes it for SECONDS seconds
# (default 60) under AddressSanitizer and UndefinedBehaviorSanitizer. Any
# crash, leak, sanitizer report, timeout or out-of-memory fails the run.
#   tests/fuzz/run.sh BUILD_DIR [SECONDS]
set -euo pipefail
build=$(cd "$1" && pwd)
seconds=${2:-60}
here=$(cd "$(dirname "$0")" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
targets=(buffer_load filter_load image_readers)
for target in "${targets[@]}"; do
  exe="$build/tests/fuzz/fuzz_$target"
  seeds="$here/corpus/$target"
  echo "== fuzz_$target: replaying $(ls "$seeds" | wc -l) seeds"
  "$exe" -runs=0 "$seeds"
  mkdir -p "$work/$target"
  echo "== fuzz_$target: fuzzing for ${seconds}s"
  # New inputs go to the scratch corpus; the committed seeds only seed it.
  log="$work/$target.log"
  if ! (cd "$work" && "$exe" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 -malloc_limit_mb=1024 \
        -print_final_stats=1 "$work/$target" "$seeds" > "$log" 2>&1); then
    tail -n 80 "$log"
    echo "fuzz_$target: FAILED"
    exit 1
  fi
  grep -E '^(#[0-9]+.*DONE|stat::number_of_executed_units|stat::peak_rss_mb)' "$log" || tail -n 5 "$log"
done
echo "fuzz: ${#targets[@]} passed, 0 failed"
