#!/usr/bin/env bash
# Sets up, builds the tool and runs the main job: the bundled look applied to the bundled chart,
# written to out/chart-warm.png with a before/after preview beside it.
set -euo pipefail
cd "$(dirname "$0")/.."

./scripts/setup.sh
cmake --preset release >/dev/null
cmake --build --preset release -j "$(nproc)" --target crandle_cli
mkdir -p out
./build/release/bin/crandle apply samples/warm-contrast.cube samples/chart.png out/chart-warm.png \
  --threads "$(nproc)" --preview out/chart-warm-preview.png
./build/release/bin/crandle info samples/warm-contrast.cube
echo "wrote out/chart-warm.png and out/chart-warm-preview.png"
