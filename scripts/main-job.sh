#!/usr/bin/env bash
# Sets up, builds the tool and runs the main job on the bundled samples.
set -euo pipefail
cd "$(dirname "$0")/.."

./scripts/setup.sh
cmake --preset release >/dev/null
cmake --build --preset release -j "$(nproc)" --target crandle_cli
./build/release/bin/crandle info samples/*.cube
