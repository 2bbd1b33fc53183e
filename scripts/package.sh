#!/usr/bin/env bash
# Builds the Debian packages in a clean root and tries them in a bare one: installed, used, built against, removed.
#   scripts/package.sh            what is committed, into build/package/out
#   scripts/package.sh --twice    builds it a second time in another folder, locale, time zone and umask, and compares
#   scripts/package.sh --resume   goes on in the build folder that the last run left, with the files as they are here
# Wants root, as debootstrap does. The roots' tarballs and all that was fetched stay in build/package.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
work=$PWD/build/package
# Of one commit all the way, whatever is committed meanwhile.
commit=$(git rev-parse HEAD)

say() { echo "package: $*" >&2; }
# fail LOG: shows the end of a log, and ends.
fail() {
  tail -n 60 "$1" >&2
  say "failed; all of it stands in $1"
  exit 1
}
. scripts/packaging/roots.sh
. scripts/packaging/build.sh
. scripts/packaging/check.sh
. scripts/packaging/install.sh

twice=
resume=
for argument; do
  case "$argument" in
    --twice) twice=1 ;;
    --resume) resume=1 ;;
    *) sed -n '2,6s/^# //p' "${BASH_SOURCE[0]}" >&2; exit 2 ;;
  esac
done
[ "$(id -u)" -eq 0 ] || { say "run this as root: clean roots are made and entered"; exit 1; }
scripts/setup.sh --for package
mkdir -p "$work/debs"
if [ -z "$resume" ] && [ -n "$(git status --porcelain --untracked-files=no)" ]; then
  say "what is not committed is not in the packages"
fi

make_bare_root
make_build_root
build_packages first /build/qlnutil C.UTF-8 UTC 022 "$work/out" $resume
check_packages "$work/out" "$work/first.log"
if [ -n "$twice" ]; then
  build_packages second /srv/a/folder/further/down/another tr_TR.UTF-8 Asia/Kathmandu 077 "$work/out.second"
  compare_packages "$work/out" "$work/out.second"
fi
try_installed "$work/out"
say "$(find "$work/out" -name '*.deb' ! -name '*-dbgsym_*' | wc -l) packages stand in build/package/out; $((SECONDS / 60)) minutes, $(processor_time)"
