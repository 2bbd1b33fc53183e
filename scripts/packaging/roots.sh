# Clean roots of Debian 12 for scripts/package.sh, which sets `work`: a bare one and one to build in, kept as tarballs,
# with the packages that were fetched for them.
suite=bookworm
mirror=${QLN_DEBIAN_MIRROR:-http://deb.debian.org/debian}

# in_root ROOT COMMAND: runs a line of bash as root in a root that sees nothing of this system but its network and the
# packages fetched so far. What it mounts and starts is gone when it ends.
in_root() {
  unshare --mount --pid --fork --kill-child bash -c '
    set -euo pipefail
    mount --make-rprivate /
    mount -t proc proc "$1/proc"
    mount -t tmpfs -o mode=1777 tmpfs "$1/dev/shm"
    for device in null zero full random urandom tty; do
      [ -e "$1/dev/$device" ] || touch "$1/dev/$device"
      mount --bind "/dev/$device" "$1/dev/$device"
    done
    mount --bind "$2" "$1/var/cache/apt/archives"
    cp -L /etc/resolv.conf /etc/hosts "$1/etc/"
    exec env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/root LC_ALL=C.UTF-8 DEBIAN_FRONTEND=noninteractive \
      chroot "$1" bash -c "set -euo pipefail; $3"' in_root "$1" "$work/debs" "$2" </dev/null
}

# unpack TARBALL FOLDER: a fresh root.
unpack() {
  rm -rf --one-file-system "$2"
  mkdir -p "$2"
  tar -C "$2" -xpf "$1"
}

# The bare root: what debootstrap takes for the least.
make_bare_root() {
  if [ -e "$work/bare.tar" ]; then return; fi
  say "making a bare root of Debian $suite"
  rm -rf --one-file-system "$work/root"
  debootstrap --variant=minbase --cache-dir="$work/debs" "$suite" "$work/root" "$mirror" >"$work/debootstrap.log" 2>&1 ||
    fail "$work/debootstrap.log"
  # Nothing in these roots outlives a crash, so that nothing is worth waiting for the disk.
  echo force-unsafe-io >"$work/root/etc/dpkg/dpkg.cfg.d/unsafe-io"
  tar -C "$work/root" -cf "$work/bare.tar.new" .
  mv "$work/bare.tar.new" "$work/bare.tar"
}

# The root to build in: the bare one, what debian/control names, a user, and a locale of its own ways. Its tarball has a
# name for what went into it.
make_build_root() {
  local named
  named=$({ sed -n '/^Build-Depends:/,/^$/p' debian/control; cat "${BASH_SOURCE[0]}"; } | sha256sum | head -c 12)
  build_root_tar=$work/build-$named.tar
  if [ -e "$build_root_tar" ]; then return; fi
  say "making the root to build in"
  rm -f "$work"/build-*.tar
  unpack "$work/bare.tar" "$work/root"
  mkdir "$work/root/tmp/debian"
  cp debian/control "$work/root/tmp/debian/"
  in_root "$work/root" '
    apt-get update -q
    apt-get install -qy --no-install-recommends dpkg-dev locales fakeroot
    cd /tmp && apt-get build-dep -qy --no-install-recommends ./
    rm -rf /tmp/debian
    localedef -i tr_TR -f UTF-8 tr_TR.UTF-8
    useradd --system --home-dir /nonexistent builder' >"$work/build-root.log" 2>&1 || fail "$work/build-root.log"
  tar -C "$work/root" -cf "$build_root_tar.new" .
  mv "$build_root_tar.new" "$build_root_tar"
}
