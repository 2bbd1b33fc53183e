#!/usr/bin/env bash
# Installs the Python package with pip, without a network, into a folder of its own, and runs the tests of records and
# streams on what stands there.
#   scripts/wheel.sh [BUILD_FOLDER]
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

scripts/setup.sh
build=${1:-build/wheel}
target=$(mktemp -d)
trap 'rm -rf "$target"' EXIT
/usr/bin/python3 -m pip install --quiet --no-index --target "$target" --config-settings "build-dir=$build" .
[ -e build/release/tools/qlnmedia/qlnmedia ] || cmake --build "$build" --target qlnmedia --parallel "$(nproc)"
tool=build/release/tools/qlnmedia/qlnmedia
[ -e "$tool" ] || tool=$build/tools/qlnmedia/qlnmedia
# Nothing of the tree may be needed: the folder is moved first.
mv "$target" "$target-moved"
trap 'rm -rf "$target-moved"' EXIT
cd tests/python
PYTHONPATH=$target-moved PYTHONDONTWRITEBYTECODE=1 QLNMEDIA=$OLDPWD/$tool QLN_PYTHON_CLIPS=$OLDPWD/$build/clips \
  /usr/bin/python3 -m pytest -q -p no:cacheprovider test_records.py test_streams.py
