#!/usr/bin/env bash
# Installs the Debian packages of scripts/packages.txt that are missing (and those named as arguments).
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

missing=()
for package in $(grep -v '^#' scripts/packages.txt) "$@"; do
  dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q '^install ok installed' || missing+=("$package")
done
if [ ${#missing[@]} -eq 0 ]; then exit 0; fi

as_root=()
if [ "$(id -u)" -ne 0 ]; then
  command -v sudo >/dev/null || { echo "setup: install these as root first: ${missing[*]}" >&2; exit 1; }
  as_root=(sudo)
fi
echo "setup: installing ${#missing[@]} packages: ${missing[*]}" >&2
"${as_root[@]}" apt-get update -qq >&2
"${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "${missing[@]}" >&2
