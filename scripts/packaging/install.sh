# Built packages in a bare system: installed by apt, used, built against, removed; for scripts/package.sh.

# listing ROOT: every name with kind, rights, owner, size and target, but for what apt, dpkg and the dynamic linker's cache
# keep for themselves, and logs.
listing() {
  find "$1" -xdev \( -path "$1/proc" -o -path "$1/dev" -o -path "$1/try" -o -path "$1/var/lib/apt" -o -path "$1/var/cache/apt" \
    -o -path "$1/var/lib/dpkg" -o -path "$1/var/log" -o -path "$1/etc/ld.so.cache" -o -path "$1/var/cache/ldconfig" \) -prune \
    -o -type d -printf '/%P %y %m %u %g\n' -o -printf '/%P %y %m %u %g %s %l\n' | sort
}

# same_as_before: the root is what it was when `before` was written.
same_as_before() {
  listing "$work/root" >"$work/after"
  if ! diff "$work/before" "$work/after" >"$work/left.log"; then
    say "this is left where the packages were, or gone with them:"
    fail "$work/left.log"
  fi
  in_root "$work/root" 'dpkg-query -W -f="\${db:Status-Abbrev} \${Package}\n"' >"$work/states"
  if grep -vE '^ii ' "$work/states" >&2; then
    say "dpkg has not forgotten these"
    exit 1
  fi
}

# A clip as a user has one, and the same pictures as a raw stream.
make_clips() {
  local pictures=(ffmpeg -v error -y -f lavfi -i testsrc2=s=128x96:r=25:d=0.4 -pix_fmt yuv420p -c:v libx264)
  "${pictures[@]}" "$1/clip.mp4"
  "${pictures[@]}" -x264-params aud=1:keyint=5 "$1/clip.h264"
}

# logged COMMAND...: one step, said in the log.
logged() { "$@" >>"$work/install.log" 2>&1 || fail "$work/install.log"; }

# try_installed FOLDER
try_installed() {
  local names libraries log=$work/install.log
  say "trying them in a bare system; the log is $log"
  names=$(for package in "$1"/*.deb; do dpkg-deb -f "$package" Package; done | grep -v -- '-dbgsym$' | tr '\n' ' ')
  libraries=$(tr ' ' '\n' <<<"$names" | grep ^lib | tr '\n' ' ')
  unpack "$work/bare.tar" "$work/root"
  mkdir -p "$work/root/try/packages"
  cp "$1"/*.deb "$work/root/try/packages/"
  rm -f "$work/root"/try/packages/*-dbgsym_*
  cp -r tests/install "$work/root/try/consumers"
  make_clips "$work/root/try"
  rm -f "$log"
  # What apt takes for them out of the distribution comes first, so that their own traces can be told apart.
  logged in_root "$work/root" "
    apt-get update -q
    apt-get install -s --no-install-recommends /try/packages/*.deb >/try/plan
    sed -n 's/^Inst \([^ ]*\) .*/\1/p' /try/plan | grep -vxF \"\$(tr ' ' '\n' <<<'${names% }')\" | sort >/try/others
    if grep -nE '^(g\+\+|ffmpeg|.*-dev)\$' /try/others; then
      echo 'the packages bring development packages along'
      exit 1
    fi
    apt-get install -qy --no-install-recommends \$(cat /try/others)"
  listing "$work/root" >"$work/before"
  logged in_root "$work/root" 'apt-get install -qy --no-install-recommends /try/packages/*.deb'
  logged use_installed
  logged in_root "$work/root" "apt-get purge -qy $names"
  same_as_before
  say "installed, used, purged: nothing is left"

  logged in_root "$work/root" 'apt-get install -qy --no-install-recommends gcc g++ libc6-dev cmake ninja-build pkg-config'
  listing "$work/root" >"$work/before"
  logged in_root "$work/root" 'apt-get install -qy --no-install-recommends /try/packages/lib*.deb'
  logged build_consumers
  logged in_root "$work/root" "apt-get remove -qy $libraries"
  logged in_root "$work/root" "dpkg --purge $libraries"
  same_as_before
  say "built against, removed and purged: nothing is left"
}

# The tool and the Python package do their work, and the pages and schema are where they are looked for.
use_installed() {
  in_root "$work/root" '
    export HOME=/try
    set -x
    cd /try
    qlnmedia --version
    qlnmedia inspect clip.mp4 | tee said
    grep -q 128x96 said
    qlnmedia check clip.mp4
    qlnmedia patch --verify --timecode 10:00:00:00 --colour bt709 clip.mp4 patched.mp4
    qlnmedia check patched.mp4
    qlnmedia inspect --details patched.mp4 | grep -q 10:00:00:00
    qlnmedia inspect --html page.html clip.mp4
    test -s page.html
    test -s /usr/share/qlnmedia/inspect.schema.json
    /usr/bin/python3 -c "
from qlnutil import h264, media
import qlnutil
assert qlnutil.__file__.startswith(\"/usr/lib/python3/dist-packages/\")
media.patch(\"clip.mp4\", \"by_python.mp4\", timecode=\"10:00:00:00\", colour=\"bt709\")"
    cmp patched.mp4 by_python.mp4
    /usr/bin/python3 -c "
import ctypes, glob
plugin, = glob.glob(\"/usr/lib/*/gstreamer-1.0/libgstqlnutil.so\")
assert ctypes.CDLL(plugin, mode=2).gst_plugin_qlnutil_get_desc"
    ls /usr/share/doc/qlnutil-doc'
}

# Programs in C and C++, through pkg-config and through CMake, told nothing of where things are.
build_consumers() {
  in_root "$work/root" '
    export HOME=/try
    set -x
    cd /try/consumers
    mkdir -p /try/built
    strict="-Wall -Wextra -Wpedantic -Werror"
    cc -std=c11 $strict consumer.c -o /try/built/c $(pkg-config --cflags --libs qlnutil)
    c++ -std=c++17 $strict consumer.cpp -o /try/built/cxx $(pkg-config --cflags --libs qlnutil)
    for consumer in engine_consumer editor_consumer; do
      c++ -std=c++20 $strict $consumer.cpp -o /try/built/$consumer $(pkg-config --cflags --libs qlnmedia)
    done
    for project in package engine; do
      cmake -S $project -B /try/built/$project -G Ninja
      cmake --build /try/built/$project
    done
    cd /try/built
    for folder in . package; do test -d $folder; done
    ./c
    ./cxx
    package/consumer_c
    package/consumer_cxx
    for folder in . engine; do
      $folder/engine_consumer /try/clip.mp4 /try/patched-by-host.mp4
      $folder/editor_consumer /try/clip.h264
    done'
}
