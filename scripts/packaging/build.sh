# Builds the packages of $commit in a clean root, as a user without rights; for scripts/package.sh.

# The processor's minutes of everything that was run so far.
processor_time() {
  local seconds
  seconds=$(times | tail -n 1 | sed -E 's/([0-9]+)m([0-9.]+)s/\1*60+\2/g; s/ /+/' | sed 's/$/\n/' | bc)
  echo "$(bc <<<"scale=1; $seconds/60") minutes of a processor"
}

# build_packages NAME FOLDER LOCALE ZONE UMASK OUT [RESUME]: the packages into OUT, built in FOLDER of a root of that NAME.
build_packages() {
  local name=$1 folder=$2 locale=$3 zone=$4 mask=$5 out=$6 resume=${7:-} root=$work/root.$1 clean=
  local log=$work/$name.log
  say "building in $folder ($locale, $zone, umask $mask); the log is $log"
  if [ -n "$resume" ] && [ -d "$root$folder" ]; then
    # Ninja goes by times: what did not change keeps its own.
    git ls-files -z | while IFS= read -r -d '' file; do
      cmp -s "$file" "$root$folder/$file" || cp --parents "$file" "$root$folder/"
    done
    rm -rf "$root$folder"/debian/{tmp,.debhelper,*.debhelper.log,*.substvars,debhelper-build-stamp}
    in_root "$root" "cd '$folder' && apt-get update -q && apt-get build-dep -qy --no-install-recommends ./" >>"$log" 2>&1 ||
      fail "$log"
    clean=--no-pre-clean
  else
    : >"$log"
    unpack "$build_root_tar" "$root"
    mkdir -p "$root$folder"
    git archive "$commit" | tar -C "$root$folder" -xf -
  fi
  rm -f "$root$folder"/../*.{deb,buildinfo,changes}
  # The user owns the folder and what is beside it, where the packages come to stand.
  in_root "$root" "chown -R builder: '$(dirname "$folder")'"
  in_root "$root" "
    cd '$folder'
    umask $mask
    exec env LC_ALL=$locale TZ=$zone HOME=/nonexistent SOURCE_DATE_EPOCH=$(git log -1 --format=%ct "$commit") \
      DEB_BUILD_OPTIONS=parallel=${QLN_PACKAGE_JOBS:-$(nproc)} \
      setpriv --reuid=builder --regid=builder --clear-groups dpkg-buildpackage -us -uc -b $clean" >>"$log" 2>&1 || fail "$log"
  rm -rf "$out"
  mkdir -p "$out"
  cp "$root$folder"/../*.{deb,buildinfo,changes} "$out/"
}

# compare_packages ONE OTHER: each package of one folder has its equal in the other, byte for byte.
compare_packages() {
  local package differing=0 count=0
  for package in "$1"/*.deb; do
    count=$((count + 1))
    cmp "$package" "$2/${package##*/}" >&2 || differing=$((differing + 1))
  done
  if [ "$differing" -ne 0 ]; then
    say "$differing of $count packages differ between the two builds"
    exit 1
  fi
  say "two builds, $count packages: the same byte for byte"
}
