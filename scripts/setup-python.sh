#!/usr/bin/env bash
# Installs the Python packages that building the crandle module and its tests need (nanobind,
# scikit-build-core, numpy, pytest, dask.distributed) into the Python on PATH, when any is
# missing. Idempotent and quiet when everything is there.
set -euo pipefail

python=${PYTHON:-python3}
requirements=("nanobind>=2.4" "scikit-build-core>=0.10" numpy pytest "dask[distributed]")
modules=(nanobind scikit_build_core numpy pytest distributed)

if ! "$python" -c "import $(IFS=,; echo "${modules[*]}")" 2>/dev/null; then
  echo "setup: installing Python packages: ${requirements[*]}"
  "$python" -m pip install -q --disable-pip-version-check "${requirements[@]}"
fi
