#!/usr/bin/env bash
# Builds the libFuzzer targets (the fuzz preset) and runs each for SECONDS seconds (default 60) on
# a scratch copy of its seed corpus plus its kept regression inputs. Every kept input is run once
# first. Any crash, leak, timeout or sanitizer report fails the script; the input that caused it
# is left under fuzz/corpus-work/<target>/ (keep it under fuzz/regressions/<target>/ with a name
# that says what was wrong, once the bug is fixed).
#
#   scripts/fuzz.sh [SECONDS]        CRANDLE_FUZZ_BUILD_DIR overrides the build folder.
set -euo pipefail
cd "$(dirname "$0")/.."

seconds="${1:-60}"
build="${CRANDLE_FUZZ_BUILD_DIR:-build/fuzz}"
targets=(parse_lut_data xml_lut_element look_document)

cmake --preset fuzz -B "$build" >/dev/null
cmake --build "$build" -j "$(nproc)" --target "${targets[@]/#/fuzz_}"

export ASAN_OPTIONS="detect_leaks=1:abort_on_error=0:allocator_may_return_null=1"
export UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1"

for target in "${targets[@]}"; do
  binary="$build/bin/fuzz_$target"
  work="fuzz/corpus-work/$target"
  rm -rf "$work"
  mkdir -p "$work/corpus" "$work/artifacts"
  cp fuzz/corpus/"$target"/* "$work/corpus/"

  kept=()
  if [[ -d "fuzz/regressions/$target" ]]; then
    while IFS= read -r -d '' file; do kept+=("$file"); done \
      < <(find "fuzz/regressions/$target" -type f -print0 | sort -z)
  fi
  if [[ ${#kept[@]} -gt 0 ]]; then
    echo "== fuzz_$target: ${#kept[@]} kept inputs"
    "$binary" -artifact_prefix="$work/artifacts/" "${kept[@]}" 2>"$work/kept.log" || {
      tail -n 40 "$work/kept.log"
      echo "fuzz: a kept input of fuzz_$target fails again" >&2
      exit 1
    }
    cp "${kept[@]}" "$work/corpus/"
  fi

  echo "== fuzz_$target: ${seconds} s"
  "$binary" -max_total_time="$seconds" -timeout=20 -rss_limit_mb=2048 -print_final_stats=1 \
    -artifact_prefix="$work/artifacts/" "$work/corpus" 2>"$work/run.log" || {
    tail -n 60 "$work/run.log"
    echo "fuzz: fuzz_$target failed; the input is in $work/artifacts/" >&2
    exit 1
  }
  grep -E '^stat::(number_of_executed_units|peak_rss_mb)' "$work/run.log" | sed "s/^/   /"
done
echo "== fuzz: every target ran ${seconds} s without a finding"
