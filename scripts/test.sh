#!/usr/bin/env bash
# Sets up, builds and runs the whole test suite: release, then again under the address and
# undefined-behaviour sanitizers, the thread tests under the thread sanitizer, then a short run
# of every fuzz target. Any failure stops it.
set -euo pipefail
cd "$(dirname "$0")/.."

./scripts/setup.sh
jobs=$(nproc)

for preset in release asan; do
  echo "== $preset: build"
  cmake --preset "$preset" >/dev/null
  cmake --build --preset "$preset" -j "$jobs"
  echo "== $preset: test"
  ctest --preset "$preset" -j "$jobs"
done

# The tests that exercise threads (label threads) once more under the thread sanitizer: only
# their executables are built.
echo "== tsan: build the thread tests"
cmake --preset tsan >/dev/null
cmake --build --preset tsan -j "$jobs" --target thread_tests
echo "== tsan: test"
ctest --preset tsan -j "$jobs" -L threads

echo "== python: install the module, test"
python3 -m pip install -q --disable-pip-version-check --no-build-isolation .
python3 -m pytest -q python/tests

if [[ -x scripts/fuzz.sh ]]; then
  echo "== fuzz"
  ./scripts/fuzz.sh "${CRANDLE_FUZZ_SECONDS:-30}"
fi
echo "== all tests passed"
