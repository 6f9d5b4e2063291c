#!/usr/bin/env bash
# Builds the libFuzzer targets (the fuzz preset) and runs each for SECONDS seconds (default 30,
# so that the four targets stay within two minutes of CI) on a scratch copy of its seed corpus
# plus its kept regression inputs, with the dictionary of its formats' keywords. Every kept input
# is run once first. Any crash, leak, timeout or sanitizer report fails the script; the input
# that caused it is left under fuzz/corpus-work/<target>/ (keep it under
# fuzz/regressions/<target>/ with a name that says what was wrong, once the bug is fixed).
#
#   scripts/fuzz.sh [SECONDS]           the CI run: a fresh scratch corpus per target
#   scripts/fuzz.sh --long [SECONDS]    the scheduled campaign: SECONDS per target (default one
#                                       hour), on a corpus kept between campaigns under
#                                       fuzz/corpus-long/<target>/ (not in git), which grows with
#                                       every run; coverage and corpus size are printed per target
#
# CRANDLE_FUZZ_BUILD_DIR overrides the build folder; CRANDLE_FUZZ_TARGETS the targets run.
set -euo pipefail
cd "$(dirname "$0")/.."

long=0
if [[ "${1:-}" == "--long" ]]; then
  long=1
  shift
fi
seconds="${1:-$([[ $long == 1 ]] && echo 3600 || echo 30)}"
build="${CRANDLE_FUZZ_BUILD_DIR:-build/fuzz}"
read -r -a targets <<<"${CRANDLE_FUZZ_TARGETS:-parse_lut_data parse_lut xml_lut_element look_document}"

# Longest input per target: the XML readers get documents of several MB, so that the fuzzer can
# build deep nesting and long runs; the text readers' cost per byte shows on 1 MB.
declare -A max_len=([parse_lut_data]=1048576 [parse_lut]=1048576 [xml_lut_element]=4194304
                    [look_document]=4194304)

cmake --preset fuzz -B "$build" >/dev/null
cmake --build "$build" -j "$(nproc)" --target "${targets[@]/#/fuzz_}"

export ASAN_OPTIONS="detect_leaks=1:abort_on_error=0:allocator_may_return_null=1"
export UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1"

for target in "${targets[@]}"; do
  binary="$build/bin/fuzz_$target"
  work="fuzz/corpus-work/$target"
  rm -rf "$work"
  mkdir -p "$work/corpus" "$work/artifacts"
  corpus="$work/corpus"
  if [[ $long == 1 ]]; then
    corpus="fuzz/corpus-long/$target"
    mkdir -p "$corpus"
  fi
  cp fuzz/corpus/"$target"/* "$corpus/"

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
    cp "${kept[@]}" "$corpus/"
  fi

  options=(-max_total_time="$seconds" -timeout=20 -rss_limit_mb=2048 -print_final_stats=1
           -max_len="${max_len[$target]:-1048576}" -artifact_prefix="$work/artifacts/")
  if [[ -f "fuzz/dictionaries/$target.dict" ]]; then
    options+=(-dict="fuzz/dictionaries/$target.dict")
  fi
  echo "== fuzz_$target: ${seconds} s"
  "$binary" "${options[@]}" "$corpus" 2>"$work/run.log" || {
    tail -n 60 "$work/run.log"
    echo "fuzz: fuzz_$target failed; the input is in $work/artifacts/" >&2
    exit 1
  }
  grep -E '^stat::(number_of_executed_units|peak_rss_mb)' "$work/run.log" | sed "s/^/   /"
  # The last status line: coverage (cov), features (ft) and corpus size.
  grep -E '^#[0-9]+' "$work/run.log" | tail -n 1 | sed "s/^/   /"
done
echo "== fuzz: every target ran ${seconds} s without a finding"
