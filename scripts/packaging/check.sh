# What Debian's own checkers say of built packages; for scripts/package.sh.

# check_packages FOLDER LOG: lintian without errors and warnings, and each program and library hardened in every way that
# this release of Debian has.
check_packages() {
  local folder=$1 unpacked=$work/unpacked package binary count=0
  say "asking lintian"
  lintian --fail-on error,warning --allow-root "$folder"/*.changes >"$work/lintian.log" 2>&1 || fail "$work/lintian.log"
  cat "$work/lintian.log" >&2

  say "asking hardening-check"
  rm -rf "$unpacked"
  mkdir -p "$unpacked"
  for package in "$folder"/*.deb; do
    case "$package" in *-dbgsym_*) ;; *) dpkg-deb -x "$package" "$unpacked/$(basename "$package" .deb)" ;; esac
  done
  while read -r binary; do
    count=$((count + 1))
    # Marked jump targets need a C library that has them, and this release's has none.
    # Which calls have a checked form depends on the code, and C++ has few; that all were compiled for it, the log tells.
    hardening-check --nofortify --nocfprotection "$binary" >"$work/hardening.log" 2>&1 || fail "$work/hardening.log"
  done < <(find "$unpacked" -type f \( -name '*.so*' -o -path '*/usr/bin/*' \))
  [ "$count" -ge 6 ] || { say "only $count programs and libraries were found to look at"; exit 1; }
  grep -E '^\[[0-9]+/[0-9]+\].* -c [^ ]+\.(c|cpp)( |$)' "$2" >"$work/compiled" || true
  if [ ! -s "$work/compiled" ] || grep -v -- '-D_FORTIFY_SOURCE=2' "$work/compiled" >"$work/hardening.log"; then
    say "files were compiled without checked calls, or none was compiled"
    fail "$work/hardening.log"
  fi
  say "$count programs and libraries are hardened, as all $(wc -l <"$work/compiled") files were compiled"
}
