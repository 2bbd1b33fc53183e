#!/usr/bin/env bash
# Builds for another machine and runs the library's tests and its fuzz targets over their seeds there, in an emulator.
#   scripts/cross.sh arm64    the library, the engine and the tool
#   scripts/cross.sh s390x    the library alone, on a big-endian machine
#   scripts/cross.sh          both
# The target's packages are unpacked into build/cross/ARCHITECTURE/root; nothing of the other architecture is installed.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

scripts/setup.sh --for cross,tool python3 libxml2-utils

library_packages=(libc6-dev libstdc++6 libtinyxml-dev libjsmn-dev libsqlite3-dev libgtest-dev libgmock-dev)
engine_packages=(libavformat-dev libavcodec-dev libavutil-dev libcli11-dev libfmt-dev nlohmann-json3-dev libpugixml-dev
  zlib1g-dev libjs-dygraphs)

# Test cases that an emulator of programs cannot run, each with its reason.
left_out=(
  # They measure time, which passes otherwise there; what they come to is the matter of other cases.
  FourccClasses.AQuestionCostsNoMoreThanASearch
  Json.TakesLinearTime
  StoreFiles.NewSectionsTakeLinearTime
  XmlPrescan.HostileTextsTakeTheParserHardlyLongerThanPlainOnes
  ProjectFiles.HostileDocumentsTakeHardlyLongerThanPlainOnes
  DefaultStoreLoad.ReadersDoNotNoticeFourWriters
  MarkerToSize.IsLinearInTheNumberOfShortMarkers
  HevcConfig.PeriodsOfTheWalkAreLeftOutWithTheSameOutcome
  HevcConfig.ManyHostileArraysEndSoon
  HevcConfigWalk.HostileBoxesTakeTheTimeOfAFewPasses
  HevcNalReading.LongUnitsTakeLinearTime
  HevcReaderFrame.AHugeLengthEndsAtOnceForEveryReader
  # They have the kernel refuse system calls (seccomp), which qemu-user does not offer.
  DefaultStoreTrouble.ADamagedStoreIsSetAsideByWhatTheFileSystemKnows
  ProjectFiles.ATextIsMadeOnFileSystemsThatKnowLess
  RefusedCallsTest.ACopyThatCannotBeMadeIsTold
)

# unpack ARCHITECTURE PACKAGE...: the packages and all that they depend on, into root. Done once for each list.
unpack() {
  local architecture=$1 folder=build/cross/$1 deb link
  shift
  local root=$folder/root stamp=$folder/packages
  if [ -f "$stamp" ] && [ "$(cat "$stamp")" = "$*" ]; then return; fi
  echo "cross: $architecture: fetching packages" >&2
  rm -rf "$root" "$folder/apt" "$stamp"
  mkdir -p "$root"/usr/{bin,sbin,lib} "$folder"/apt/{lists,cache/archives}/partial
  for link in bin sbin lib; do ln -s "usr/$link" "$root/$link"; done
  : >"$folder/apt/status"
  local apt=(apt-get -qq -o "Dir::State=$PWD/$folder/apt" -o "Dir::State::lists=$PWD/$folder/apt/lists"
    -o "Dir::State::status=$PWD/$folder/apt/status" -o "Dir::Cache=$PWD/$folder/apt/cache"
    -o "APT::Architecture=$architecture" -o "APT::Architectures=$architecture" -o Acquire::Languages=none
    -o APT::Sandbox::User=root -o Debug::NoLocking=1)
  "${apt[@]}" update >&2
  "${apt[@]}" install -y --no-install-recommends --download-only "$@" >"$folder/apt/log"
  for deb in "$folder"/apt/cache/archives/*.deb; do
    dpkg-deb --fsys-tarfile "$deb" | tar -x -C "$root" --keep-directory-symlink --no-same-owner
  done
  # Links that name their target from the root on mean this one.
  find "$root" -type l -lname '/*' -print0 | while IFS= read -r -d '' link; do
    ln -snfr "$root$(readlink "$link")" "$link"
  done
  rm -rf "$folder/apt/cache" "$folder/apt/lists"
  echo "$*" >"$stamp"
}

# cross ARCHITECTURE MACHINE TOOLS: TOOLS is ON or OFF, for the engine and the tool.
cross() {
  local architecture=$1 machine=$2 tools=$3 began=$SECONDS folder=build/cross/$1
  local log=$folder/log
  local packages=("${library_packages[@]}") targets=(kxutil kxtimecode qlnutil library_tests)
  if [ "$tools" = ON ]; then
    packages+=("${engine_packages[@]}")
    targets+=(qlnmedia)
  fi
  unpack "$architecture" "${packages[@]}"
  echo "cross: $architecture: building" >&2
  # Warnings are the host's matter: GCC has false ones of its own for other machines.
  if ! cmake -S . -B "$folder/build" -G Ninja --toolchain "cmake/$machine.cmake" -DCMAKE_BUILD_TYPE=Release \
    -DCMAKE_C_FLAGS_RELEASE="-O2 -DNDEBUG" -DCMAKE_CXX_FLAGS_RELEASE="-O2 -DNDEBUG" -DQLN_TEST_OPTIONS=-O1 \
    -DQLN_WERROR=OFF -DQLN_TOOLS="$tools" -DQLN_PYTHON=OFF -DQLN_UNITY=ON >"$log" 2>&1; then
    cat "$log" >&2
    exit 1
  fi
  cmake --build "$folder/build" --target "${targets[@]}" --parallel "$(nproc)"
  echo "cross: $architecture: built after $((SECONDS - began)) s; running the tests" >&2
  GTEST_BRIEF=1 GTEST_FILTER="-$(IFS=: && echo "${left_out[*]}")" ctest --test-dir "$folder/build" -L library \
    --output-on-failure --parallel "$(nproc)"
  if [ "$tools" = ON ]; then run_tool "$folder" "$machine"; fi
  echo "cross: $architecture: passed after $((SECONDS - began)) s"
}

# run_tool FOLDER MACHINE: the tool there makes of a clip what the tool here makes of it, where there is one.
run_tool() {
  local tool=(qemu-"$2" -L "$1/root" "$1/build/tools/qlnmedia/qlnmedia") clip=$1/clip.mp4 patched=$1/patched.mp4
  local here=${QLNMEDIA:-build/release/tools/qlnmedia/qlnmedia}
  ffmpeg -v error -y -f lavfi -i testsrc2=size=160x120:rate=25:duration=0.4 -c:v libx264 -preset ultrafast \
    -pix_fmt yuv420p "$clip"
  "${tool[@]}" inspect --json --elements --units "$clip" >"$1/inspect.json"
  "${tool[@]}" patch --force --verify --timecode 10:00:00:00 --colour bt2020-pq --hdr p3 "$clip" "$patched" >/dev/null
  "${tool[@]}" check "$patched"
  if [ -x "$here" ]; then
    "$here" inspect --json --elements --units "$clip" | cmp - "$1/inspect.json"
    "$here" patch --force --timecode 10:00:00:00 --colour bt2020-pq --hdr p3 "$clip" "$1/here.mp4" >/dev/null
    cmp "$1/here.mp4" "$patched"
    echo "cross: the tool's report and file are those of $here"
  fi
}

case "${1:-all}" in
  arm64) cross arm64 aarch64 ON ;;
  s390x) cross s390x s390x OFF ;;
  all)
    cross s390x s390x OFF
    cross arm64 aarch64 ON
    ;;
  *)
    sed -n '2,6s/^# //p' "${BASH_SOURCE[0]}" >&2
    exit 2
    ;;
esac
