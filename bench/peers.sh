#!/usr/bin/env bash
# Applies the LUTs of bench_apply to the same 3840 x 2160 picture with the lut3d and lut1d
# filters of the ffmpeg command-line tool, single-threaded, and prints their time per frame beside
# bench_apply's. ffmpeg is only a yardstick here, never a dependency of the build: it is installed
# from Debian when missing.
#
#   bench/peers.sh [BUILD_DIR]        (default build/release, configured with -DCMAKE_BUILD_TYPE=Release)
#
# The picture goes to ffmpeg as raw planar float (gbrpf32le), looped over several frames; a run
# with no filter measures ffmpeg's own reading and writing, which is subtracted. Each figure is the
# best of a few runs (bench_apply's the median). Both programs run on one core; bench_apply's
# figures come from both kernel tables (the process's own, and the 128-bit one by
# CRANDLE_CPU_ISA=sse).
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:-build/release}
frames=${CRANDLE_PEER_FRAMES:-8}
runs=${CRANDLE_PEER_RUNS:-3}

if ! command -v ffmpeg >/dev/null; then
  echo "== installing ffmpeg from Debian (benchmark peer only)"
  sudo_cmd=""
  [[ $(id -u) -ne 0 ]] && sudo_cmd="sudo"
  $sudo_cmd apt-get update -qq
  $sudo_cmd apt-get install -y -qq --no-install-recommends ffmpeg >/dev/null
fi

cmake --build "$build" --target bench_apply bench_peer_inputs >/dev/null
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
"$build/bin/bench_peer_inputs" "$work"

# Milliseconds per frame of one ffmpeg run with filter graph $1 (wall time and CPU time, best of
# $runs), printed as "wall cpu".
ffmpeg_ms() {
  local best_wall="" best_cpu=""
  for ((i = 0; i < runs; i++)); do
    local line
    line=$(ffmpeg -hide_banner -nostdin -benchmark -threads 1 -filter_threads 1 \
      -stream_loop $((frames - 1)) -f rawvideo -pix_fmt gbrpf32le -s 3840x2160 \
      -i "$work/frame.gbrpf32le" -vf "$1" -f rawvideo -pix_fmt gbrpf32le -y /dev/null 2>&1 |
      grep -o 'bench: utime=[0-9.]*s stime=[0-9.]*s rtime=[0-9.]*s')
    read -r wall cpu < <(echo "$line" |
      awk -v n="$frames" -F'[= s]+' '{ printf "%.3f %.3f\n", 1000 * $7 / n, 1000 * ($3 + $5) / n }')
    if [[ -z $best_wall ]] || awk -v a="$wall" -v b="$best_wall" 'BEGIN { exit !(a < b) }'; then
      best_wall=$wall
    fi
    if [[ -z $best_cpu ]] || awk -v a="$cpu" -v b="$best_cpu" 'BEGIN { exit !(a < b) }'; then
      best_cpu=$cpu
    fi
  done
  echo "$best_wall $best_cpu"
}

# A filter that ffmpeg would have to feed through a format conversion would measure that too.
if ffmpeg -hide_banner -nostdin -v verbose -f rawvideo -pix_fmt gbrpf32le -s 3840x2160 \
  -i "$work/frame.gbrpf32le" -frames:v 1 -vf "lut3d=file=$work/cube33.cube" \
  -f rawvideo -pix_fmt gbrpf32le -y /dev/null 2>&1 | grep -q "auto_scale"; then
  echo "warning: ffmpeg converts the pixel format around lut3d; its figures include that" >&2
fi

echo "== ffmpeg $(ffmpeg -version | head -1 | awk '{print $3}'), $frames frames per run, best of $runs"
read -r null_wall null_cpu < <(ffmpeg_ms null)
declare -A peer_wall peer_cpu
peer() {  # name filter
  read -r w c < <(ffmpeg_ms "$2")
  peer_wall[$1]=$(awk -v a="$w" -v b="$null_wall" 'BEGIN { printf "%.1f", a - b }')
  peer_cpu[$1]=$(awk -v a="$c" -v b="$null_cpu" 'BEGIN { printf "%.1f", a - b }')
}
peer lut3d33_trilinear "lut3d=file=$work/cube33.cube:interp=trilinear"
peer lut3d33_tetrahedral "lut3d=file=$work/cube33.cube:interp=tetrahedral"
peer lut3d65_trilinear "lut3d=file=$work/cube65.cube:interp=trilinear"
peer lut3d65_tetrahedral "lut3d=file=$work/cube65.cube:interp=tetrahedral"
peer lut1d4096_linear "lut1d=file=$work/curve4096.cube:interp=linear"
peer lut1d3d33_trilinear \
  "lut1d=file=$work/shaper256.cube:interp=linear,lut3d=file=$work/shapedcube33.cube:interp=trilinear"

# bench_apply's real and CPU time (ms) per benchmark, median of $runs, for one kernel table.
declare -A ours_wall ours_cpu
ours() {  # label env...
  local label=$1
  shift
  while IFS=, read -r name _ real cpu _; do
    name=${name//\"/}
    name=${name%_median}
    name=${name%/real_time}
    ours_wall[$label:$name]=$(printf "%.1f" "$real")
    ours_cpu[$label:$name]=$(printf "%.1f" "$cpu")
  done < <(env "$@" "$build/bin/bench_apply" --benchmark_filter='BM_ApplyCPU|BM_InplaceSwap' \
    --benchmark_repetitions="$runs" --benchmark_report_aggregates_only=true \
    --benchmark_format=csv 2>/dev/null | grep '_median"')
}
# The table the process chooses (256-bit where the processor has it), then the 128-bit one.
tiers=(default sse)
ours default CRANDLE_PEERS=1
ours sse CRANDLE_CPU_ISA=sse

printf "\n%-30s %-22s %9s %10s %8s %10s\n" "ours" "ffmpeg" "ours ms" "ffmpeg ms" "ratio" "cpu ratio"
row() {  # our benchmark, tier, peer
  local key="$2:$1" w c
  w=${ours_wall[$key]:-}
  c=${ours_cpu[$key]:-}
  [[ -z $w ]] && return
  printf "%-30s %-22s %9s %10s %8s %10s\n" "$1 ($2)" "$3" "$w" "${peer_wall[$3]}" \
    "$(awk -v p="${peer_wall[$3]}" -v o="$w" 'BEGIN { printf "%.2fx", p / o }')" \
    "$(awk -v p="${peer_cpu[$3]}" -v o="$c" 'BEGIN { printf "%.2fx", p / o }')"
}
for tier in "${tiers[@]}"; do
  row BM_ApplyCPU/3D33 "$tier" lut3d33_trilinear
  row BM_ApplyCPU/3D33 "$tier" lut3d33_tetrahedral
  row BM_ApplyCPU/3D65 "$tier" lut3d65_trilinear
  row BM_ApplyCPU/3D65 "$tier" lut3d65_tetrahedral
  row BM_ApplyCPU/1D4096 "$tier" lut1d4096_linear
  row BM_ApplyCPU/1D3D33 "$tier" lut1d3d33_trilinear
done
echo
for tier in "${tiers[@]}"; do
  swap=${ours_wall[$tier:BM_InplaceSwap/3840x2160]:-}
  swap_cpu=${ours_cpu[$tier:BM_InplaceSwap/3840x2160]:-}
  [[ -z $swap ]] && continue
  for name in BM_ApplyCPU/3D33 BM_ApplyCPU/3D65 BM_ApplyCPU/1D4096 BM_ApplyCPU/1D3D33 \
    BM_ApplyCPU8bit/3D33; do
    printf "%-22s (%-7s) %7s ms = %5s x BM_InplaceSwap (%s ms); CPU time %6s ms = %5s x (%s ms)\n" \
      "$name" "$tier" "${ours_wall[$tier:$name]:-?}" \
      "$(awk -v a="${ours_wall[$tier:$name]:-0}" -v b="$swap" 'BEGIN { printf "%.2f", a / b }')" \
      "$swap" "${ours_cpu[$tier:$name]:-?}" \
      "$(awk -v a="${ours_cpu[$tier:$name]:-0}" -v b="$swap_cpu" 'BEGIN { printf "%.2f", a / b }')" \
      "$swap_cpu"
  done
done
echo "(ratio: ffmpeg time / ours, wall clock; cpu ratio: the same in CPU time)"
