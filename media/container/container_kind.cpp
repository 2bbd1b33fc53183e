// Tells kinds of containers apart, by demuxer and by file name.

#include "container/container_kind.h"

#include <fmt/format.h>
#include <sys/stat.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>

#include "base/error.h"
#include "container/mp4/top_level.h"

namespace qlnmedia {

namespace {

struct Kind {
  const char* format;   // libavformat's name of its muxer
  const char* name;     // as people call it
  const char* endings;  // blanks around each; the usual one first
};

constexpr Kind kKinds[] = {
    {"mp4", "MP4", " mp4 m4v m4a 3gp 3g2 f4v cmfv "},     {"mov", "MOV", " mov qt "},
    {"matroska", "MKV", " mkv mk3d mka mks webm "},       {"mpegts", "TS", " ts m2ts mts m2t trp "},
    {"h264", "raw H.264", " h264 264 avc 26l jvt "},      {"hevc", "raw HEVC", " hevc h265 265 hvc "},
    {"mpeg2video", "raw MPEG-2", " m2v mpv mpeg2video "}, {"mxf", "MXF", " mxf "},
};

// Of a file's name, in small letters; a dot in front of a name makes no ending.
std::string EndingOf(const std::string& path) {
  const size_t slash = path.rfind('/');
  const size_t name = slash == std::string::npos ? 0 : slash + 1;
  const size_t dot = path.rfind('.');
  if (dot == std::string::npos || dot <= name) return {};
  std::string ending = path.substr(dot + 1);
  std::transform(ending.begin(), ending.end(), ending.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return ending;
}

bool SameFile(const std::string& a, const std::string& b) {
  struct stat first {};
  struct stat second {};
  return stat(a.c_str(), &first) == 0 && stat(b.c_str(), &second) == 0 && first.st_dev == second.st_dev &&
         first.st_ino == second.st_ino;
}

}  // namespace

void RequireWritable(const std::string& in, const std::string& path) {
  if (SameFile(in, path)) throw Error(path, "is the input itself", "name another file for the output");
  struct stat status {};
  if (stat(path.c_str(), &status) != 0) {
    if (errno != ENOENT) throw Error(path, fmt::format("cannot be written: {}", std::strerror(errno)));
  } else if (!S_ISREG(status.st_mode)) {
    throw Error(path, "is no ordinary file", "name a file for the output");
  }
}

std::string RequireOutput(const MediaFile& in, const std::string& path) {
  RequireWritable(in.path(), path);
  std::string format = OutputFormatOf(in);
  RequireEndingOf(format, in, path);
  return format;
}

std::string OutputFormatOf(const MediaFile& in) {
  const std::string_view name = in.formatName();
  if (in.isIso()) {
    // The box and not the tag, which a MOV may have among its keys.
    return IsQuickTime(mp4::FileSource(in.path())) ? "mov" : "mp4";
  }
  if (name.substr(0, 8) == "matroska") return "matroska";
  if (name == "mpegvideo") return "mpeg2video";
  if (name == "mpegts" || name == "mxf" || name == "h264" || name == "hevc") return std::string(name);
  throw Error(in.path(), fmt::format("containers of the kind {} cannot be written", name),
              "use MP4, MOV, MKV, TS, MXF, raw H.264 or raw HEVC");
}

void RequireEndingOf(const std::string& format, const MediaFile& in, const std::string& path) {
  const std::string ending = EndingOf(path);
  if (ending.empty() || ending == EndingOf(in.path())) return;
  const Kind* named = nullptr;
  const Kind* is = nullptr;
  for (const Kind& kind : kKinds) {
    if (std::strstr(kind.endings, (" " + ending + " ").c_str()) != nullptr) named = &kind;
    if (format == kind.format) is = &kind;
  }
  if (named == nullptr || is == nullptr || named == is) return;
  const std::string usual(is->endings + 1, std::strcspn(is->endings + 1, " "));
  throw Error(path,
              fmt::format("is named as {}, but the output is {} as the input is", named->name, is->name),
              "name it ." + usual);
}

}  // namespace qlnmedia
