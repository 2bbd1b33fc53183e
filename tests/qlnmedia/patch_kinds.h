// The files that patch is tested on: encoders' streams of every kind, in every container.
#ifndef TESTS_QLNMEDIA_PATCH_KINDS_H
#define TESTS_QLNMEDIA_PATCH_KINDS_H

#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <vector>

#include "qlnmedia/program.h"

namespace qln::test::patching {

inline const char* const kPictures = "ffmpeg -v error -y -f lavfi -i testsrc2=s=128x96:r=25:d=0.6 ";
inline const char* const kWithSound = "-f lavfi -i sine=d=0.6 -c:a aac -b:a 32k ";

struct Kind {
  const char* name;
  const char* codec;  // h264 or hevc
  const char* options;
};

inline const Kind kKinds[] = {
    {"avc8", "h264", "-c:v libx264 -threads 1 -pix_fmt yuv420p -g 8"},
    {"avc8_slices", "h264",
     "-c:v libx264 -threads 1 -pix_fmt yuv420p -x264-params slices=3:bframes=0:keyint=6"},
    {"avc8_fields", "h264",
     "-c:v libx264 -threads 1 -pix_fmt yuv420p -flags +ilme+ildct -x264-params tff=1:keyint=8"},
    {"avc8_open", "h264",
     "-c:v libx264 -threads 1 -pix_fmt yuv420p -x264-params open-gop=1:keyint=6:bframes=2"},
    {"avc10", "h264",
     "-c:v libx264 -threads 1 -pix_fmt yuv420p10le -x264-params nal-hrd=vbr:keyint=8 -b:v 200k -maxrate 200k "
     "-bufsize 400k"},
    {"avc422_lists", "h264", "-c:v libx264 -threads 1 -pix_fmt yuv422p10le -x264-params cqm=jvt:keyint=8"},
    {"hevc8", "hevc",
     "-c:v libx265 -pix_fmt yuv420p -x265-params keyint=8:pools=1:frame-threads=1:log-level=none"},
    {"hevc10_open", "hevc",
     "-c:v libx265 -pix_fmt yuv420p10le -x265-params "
     "keyint=8:open-gop=1:repeat-headers=1:aud=1:hrd=1:vbv-bufsize=400:vbv-maxrate=200:bitrate=150:pools=1:"
     "frame-threads=1:log-level=none"},
    {"hevc_slices", "hevc",
     "-c:v libx265 -pix_fmt yuv420p -x265-params "
     "keyint=6:slices=2:ctu=16:bframes=0:pools=1:frame-threads=1:log-level=none"},
};

// HEVC codes each field as a picture.
inline const Kind kHevcFields = {
    "hevc_fields", "hevc",
    "-vf scale=128:192,separatefields -c:v libx265 -pix_fmt yuv420p -x265-params "
    "interlace=tff:keyint=8:repeat-headers=1:pools=1:frame-threads=1:log-level=none"};

inline const char* const kContainers[] = {"mp4", "mov", "mkv", "ts", "raw"};

inline std::string Extension(const Kind& kind, const std::string& container) {
  return container == "raw" ? kind.codec : container;
}

inline std::string Source(const Kind& kind, const std::string& container) {
  const std::string name = std::string("patch_") + kind.name + "." + Extension(kind, container);
  return MediaFile(name,
                   std::string(kPictures) + (container == "raw" ? "" : kWithSound) + kind.options + " {out}");
}

inline std::string Patched(const std::string& name) { return MediaPath("patched_" + name); }

inline std::vector<std::tuple<Kind, const char*>> Cases() {
  std::vector<std::tuple<Kind, const char*>> cases;
  for (const Kind& kind : kKinds) {
    for (const char* container : kContainers) cases.emplace_back(kind, container);
  }
  return cases;
}

inline std::vector<std::tuple<Kind, const char*>> CasesWithFields() {
  std::vector<std::tuple<Kind, const char*>> cases = Cases();
  for (const char* container : kContainers) cases.emplace_back(kHevcFields, container);
  return cases;
}

}  // namespace qln::test::patching

#endif
