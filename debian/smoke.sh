#!/bin/sh
# Starts what was built in a folder: the tool, and the Python package.
set -eu
build=$1
libraries=$build/support/kxutil:$build/support/timecode:$build/support/qlnutil:$build/media
tool="env LD_LIBRARY_PATH=$libraries $build/tools/qlnmedia/qlnmedia"
$tool --version
$tool format 1920 1080 25 | grep -q 1080
$tool command play --speed 50 --position 100 | grep -q '<'
LD_LIBRARY_PATH=$libraries PYTHONPATH=$build/python PYTHONDONTWRITEBYTECODE=1 /usr/bin/python3 -c '
from qlnutil import h264, media
print(h264.__name__, media.__name__)'
