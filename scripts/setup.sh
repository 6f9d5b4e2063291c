#!/usr/bin/env bash
# Installs the Debian packages that the build, the tests and the tool need, when any is missing,
# and the Python packages of the Python module (setup-python.sh).
# Idempotent and quiet when everything is there.
set -euo pipefail
"$(dirname "$0")/setup-python.sh"

packages=(
  build-essential cmake ninja-build pkg-config git
  clang libclang-rt-14-dev clang-format
  libgtest-dev libgmock-dev libbenchmark-dev
  libssl-dev libpugixml-dev libmurmurhash-dev libcli11-dev nlohmann-json3-dev
  libopenimageio-dev
  ocl-icd-opencl-dev opencl-headers pocl-opencl-icd
  libegl-dev libgl-dev libegl-mesa0 libgl1-mesa-dri
)

missing=()
for package in "${packages[@]}"; do
  status=$(dpkg-query -W -f='${Status}' "$package" 2>/dev/null || true)
  [[ "$status" == "install ok installed" ]] || missing+=("$package")
done
[[ ${#missing[@]} -eq 0 ]] && exit 0

sudo=""
if [[ $(id -u) -ne 0 ]]; then
  command -v sudo >/dev/null || { echo "setup: need root (or sudo) to install: ${missing[*]}" >&2; exit 1; }
  sudo="sudo"
fi
echo "setup: installing ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
$sudo apt-get update -qq
$sudo apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
