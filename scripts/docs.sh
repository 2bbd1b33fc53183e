#!/usr/bin/env bash
# Builds what people look things up in, into build/docs: the reference as pages for a browser (html/index.html), manual
# pages (man/) and completions of shells (completions/); and draws docs/architecture.svg.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
if [ $# -ne 0 ]; then
  echo "usage: scripts/docs.sh" >&2
  exit 2
fi

scripts/setup.sh --for tool,docs
mkdir -p build
echo "docs: building what they are made from in build/tool, which takes some minutes on two cores at first" >&2
if ! cmake --preset tool -DQLN_MANUALS=ON >build/docs.log 2>&1 || ! cmake --build build/tool --target manuals >>build/docs.log 2>&1; then
  cat build/docs.log >&2
  exit 1
fi
made=build/tool/manuals
rm -rf build/docs
mkdir -p build/docs
cp -r "$made/man" "$made/completions" build/docs
# Ends here over anything that is not described.
doxygen "$made/Doxyfile.html"
dot -Tsvg docs/architecture.dot -o docs/architecture.svg
cp docs/architecture.svg build/docs
mandoc -Tlint -Wstyle build/docs/man/man*/*
echo "docs: $(find build/docs/man -type f | wc -l) manual pages (man -l build/docs/man/man1/qlnmedia.1), three completions," \
  "and $PWD/build/docs/html/index.html"
