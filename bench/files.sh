#!/usr/bin/env bash
# Image sequences on disk, end to end: makes ten 3840 x 2160 frames of each kind below and times,
# in one run, `crandle apply` (1 and 2 threads) against two yardsticks on the same files:
#   oiiotool   reads and writes every frame with no LUT: the codec's own floor;
#   ocioconvert --lut applies the same LUT, one process per frame (it takes one image at a time).
# Both come from Debian (openimageio-tools, opencolorio-tools) and are installed when missing; they
# are never dependencies of the build. Prints seconds per frame, peak resident memory, and crandle's
# ratios to each yardstick (below 1 against ocioconvert means faster than it).
#
#   bench/files.sh [BUILD_DIR]      (default build/release)
#
# CRANDLE_FILES_FRAMES (default 10) sets the frames per sequence, CRANDLE_FILES_KINDS the kinds
# (default: exr-half-piz exr-half-zip exr-float-piz exr-float-zip tiff-16 dpx-10).
# CRANDLE_FILES_BEFORE names another crandle executable (an earlier build) timed in the same run.
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:-build/release}
frames=${CRANDLE_FILES_FRAMES:-10}
read -r -a kinds <<<"${CRANDLE_FILES_KINDS:-exr-half-piz exr-half-zip exr-float-piz exr-float-zip tiff-16 dpx-10}"
lut=samples/warm-contrast.cube
first=1001
last=$((first + frames - 1))

missing=()
command -v oiiotool >/dev/null || missing+=(openimageio-tools)
command -v ocioconvert >/dev/null || missing+=(opencolorio-tools)
[[ -x /usr/bin/time ]] || missing+=(time)
command -v bc >/dev/null || missing+=(bc)
if ((${#missing[@]})); then
  echo "== installing ${missing[*]} from Debian (benchmark yardsticks only)"
  sudo_cmd=""
  [[ $(id -u) -ne 0 ]] && sudo_cmd="sudo"
  $sudo_cmd apt-get update -qq
  $sudo_cmd apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
fi
cmake --build "$build" --target crandle >/dev/null
crandle="$build/bin/crandle"

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# oiiotool arguments that write one frame of a kind: data type, compression, extension.
kind_output() {
  case $1 in
    exr-half-piz) echo "-d half --compression piz exr" ;;
    exr-half-zip) echo "-d half --compression zip exr" ;;
    exr-float-piz) echo "-d float --compression piz exr" ;;
    exr-float-zip) echo "-d float --compression zip exr" ;;
    tiff-16) echo "-d uint16 --compression zip tif" ;;
    dpx-10) echo "-d uint10 dpx" ;;
    *) echo "unknown kind $1" >&2; exit 2 ;;
  esac
}

# A frame that compresses like footage rather than like a flat test card: a colour ramp with
# fine noise over it, different in every frame.
make_sequence() {
  local kind=$1 dir=$2
  read -r -a output <<<"$(kind_output "$kind")"
  local extension=${output[-1]}
  unset 'output[-1]'
  mkdir -p "$dir/in" "$dir/out"
  for ((frame = first; frame <= last; frame++)); do
    oiiotool --pattern fill:topleft=0.02,0.05,0.1:topright=0.9,0.4,0.1:bottomleft=0.1,0.6,0.3:bottomright=1.2,1.0,0.8 3840x2160 3 \
      --pattern noise:type=gaussian:mean=0:stddev=0.02:seed=$frame 3840x2160 3 --add \
      "${output[@]}" -o "$dir/in/frame.$frame.$extension"
  done
  echo "$extension"
}

# Runs a command under /usr/bin/time; prints "seconds peak_kB".
timed() {
  local log="$work/time.log" start end
  start=$(date +%s.%N)
  /usr/bin/time -f "%M" -o "$log" "$@" >/dev/null 2>"$work/stderr.log" || {
    echo "failed: $*" >&2
    tail -n 5 "$work/stderr.log" >&2
    exit 1
  }
  end=$(date +%s.%N)
  echo "$(echo "$end - $start" | bc -l) $(tail -n 1 "$log")"
}

printf '%-14s %-22s %10s %10s %10s %10s\n' kind tool "s/frame" "peak MB" "/oiiotool" "/ocio"
for kind in "${kinds[@]}"; do
  dir="$work/$kind"
  extension=$(make_sequence "$kind" "$dir")
  in_pattern="$dir/in/frame.%04d.$extension"
  out_pattern="$dir/out/frame.%04d.$extension"

  read -r floor_s floor_kb < <(timed oiiotool --frames "$first-$last" \
    "$dir/in/frame.#.$extension" -o "$dir/out/frame.#.$extension")

  ocio_s=0
  ocio_kb=0
  for ((frame = first; frame <= last; frame++)); do
    read -r seconds kb < <(timed ocioconvert --lut "$lut" "$dir/in/frame.$frame.$extension" \
      "$dir/out/frame.$frame.$extension")
    ocio_s=$(echo "$ocio_s + $seconds" | bc -l)
    ((kb > ocio_kb)) && ocio_kb=$kb
  done

  declare -A crandle_s=() crandle_kb=()
  for threads in 1 2; do
    read -r "crandle_s[$threads]" "crandle_kb[$threads]" < <(timed "$crandle" apply --threads "$threads" \
      --frames "$first-$last" "$lut" "$in_pattern" "$out_pattern")
    if [[ -n ${CRANDLE_FILES_BEFORE:-} ]]; then
      read -r "crandle_s[before$threads]" "crandle_kb[before$threads]" < <(timed \
        "$CRANDLE_FILES_BEFORE" apply --threads "$threads" --frames "$first-$last" "$lut" \
        "$in_pattern" "$out_pattern")
    fi
  done

  row() {
    local tool=$1 seconds=$2 kb=$3
    printf '%-14s %-22s %10.3f %10.0f %10.2f %10.2f\n' "$kind" "$tool" \
      "$(echo "$seconds / $frames" | bc -l)" "$(echo "$kb / 1024" | bc -l)" \
      "$(echo "$seconds / $floor_s" | bc -l)" "$(echo "$seconds / $ocio_s" | bc -l)"
  }
  row "oiiotool (no LUT)" "$floor_s" "$floor_kb"
  row "ocioconvert --lut" "$ocio_s" "$ocio_kb"
  row "crandle 1 thread" "${crandle_s[1]}" "${crandle_kb[1]}"
  row "crandle 2 threads" "${crandle_s[2]}" "${crandle_kb[2]}"
  if [[ -n ${CRANDLE_FILES_BEFORE:-} ]]; then
    row "before, 1 thread" "${crandle_s[before1]}" "${crandle_kb[before1]}"
    row "before, 2 threads" "${crandle_s[before2]}" "${crandle_kb[before2]}"
  fi
  rm -rf "$dir"
done
