#!/bin/sh
# The pip package from a fresh virtual environment: `pip install .` (offline, with Debian's
# setuptools, pybind11 and numpy: --no-build-isolation), then a smoke test run from outside the
# source tree, so that only the installed package can be imported.
# Usage: package_smoke.sh SOURCE_DIR WORK_DIR PYTHON
set -e
source_dir=$1
work_dir=$2
python=$3
rm -rf "$work_dir"
mkdir -p "$work_dir"
"$python" -m venv --system-site-packages "$work_dir/venv"
CMAKE_BUILD_PARALLEL_LEVEL=${CMAKE_BUILD_PARALLEL_LEVEL:-2} \
    "$work_dir/venv/bin/pip" install --no-build-isolation --no-deps --no-index \
    "$source_dir" >"$work_dir/pip.log" 2>&1 || { tail -30 "$work_dir/pip.log"; exit 1; }
cd "$work_dir"
"$work_dir/venv/bin/python" - <<'PYTHON'
import os
import numpy as np
import muskeip

here = os.path.dirname(muskeip.__file__)
assert "site-packages" in here, here
assert os.path.exists(os.path.join(here, "libmuskeip.so.0"))
y, x = np.mgrid[0:64, 0:96].astype(np.float32)
picture = muskeip.render(-(y - 32), x - 48, length=10, colour="magnitude")
assert picture.shape == (64, 96, 3) and picture.dtype == np.uint8 and picture.std() > 10
assert muskeip.build_info.startswith("|vendor|")
print("installed muskeip works:", here)
PYTHON
