#!/usr/bin/env bash
# Installs the Debian packages of scripts/packages.txt that are missing, and those named as arguments.
#   scripts/setup.sh [PACKAGE...]                  all but those on demand
#   scripts/setup.sh --for tool,python [PACKAGE...]  those of these purposes
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

purposes=
if [ "${1:-}" = --for ]; then
  purposes=,$2,
  shift 2
fi
wanted=()
purpose=
wants=no
while read -r line; do
  case "$line" in
    '' | '#'*) ;;
    '['*)
      purpose=${line%%]*} purpose=${purpose#[}
      wants=no
      if [[ "$purposes" = *,$purpose,* || -z "$purposes" && "$line" != *'] on demand'* ]]; then wants=yes; fi
      ;;
    *) if [ "$wants" = yes ]; then wanted+=("$line"); fi ;;
  esac
done <scripts/packages.txt

missing=()
for package in "${wanted[@]}" "$@"; do
  dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q '^install ok installed' || missing+=("$package")
done
if [ ${#missing[@]} -eq 0 ]; then exit 0; fi

as_root=()
if [ "$(id -u)" -ne 0 ]; then
  command -v sudo >/dev/null || { echo "setup: install these as root first: ${missing[*]}" >&2; exit 1; }
  as_root=(sudo)
fi
echo "setup: installing ${#missing[@]} Debian packages: ${missing[*]}" >&2
show=(-qq)
if [ -t 2 ]; then show=(-q -o Dpkg::Progress-Fancy=1); fi
"${as_root[@]}" apt-get update -qq >&2
"${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y "${show[@]}" --no-install-recommends "${missing[@]}" >&2
