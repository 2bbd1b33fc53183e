// Looks at the boxes of a folder's files, or at the lines of a playlist.

#include "patch/segment_list.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <optional>
#include <sstream>
#include <utility>

#include "base/error.h"
#include "base/text_file.h"
#include "container/mp4/fragment.h"

namespace qlnmedia {

namespace {

namespace fs = std::filesystem;

enum class Part { kOther, kInitialization, kSegment };

// What a file is by its outermost boxes, and of a segment when it begins.
Part PartOf(const std::string& path, uint64_t& time) {
  if (fs::file_size(path) == 0) return Part::kOther;
  const mp4::FileSource source(path);
  mp4::Reader reader(source);
  mp4::BoxLevel level = mp4::BoxLevel::Top(reader);
  bool movie = false;
  std::optional<uint64_t> fragment;
  for (mp4::Box box; level.Next(box);) {
    movie = movie || box.type == mp4::FourCc("moov");
    if (box.type == mp4::FourCc("moof") && !fragment) fragment = box.at;
  }
  if (movie == fragment.has_value()) return Part::kOther;
  if (movie) return Part::kInitialization;
  const mp4::Fragment read = mp4::ReadFragment(reader, *fragment, nullptr);
  time = read.tracks.empty() ? 0 : read.tracks.front().decodeTime.value_or(0);
  return Part::kSegment;
}

SegmentList ListFolder(const std::string& path) {
  SegmentList list;
  list.folder = path;
  std::vector<std::string> initializations;
  std::vector<std::pair<uint64_t, std::string>> segments;
  for (const auto& entry : fs::directory_iterator(path)) {
    if (!entry.is_regular_file()) continue;
    const std::string name = entry.path().filename();
    uint64_t time = 0;
    switch (PartOf(entry.path(), time)) {
      case Part::kInitialization:
        initializations.push_back(name);
        break;
      case Part::kSegment:
        segments.emplace_back(time, name);
        break;
      case Part::kOther:
        list.others.push_back(name);
        break;
    }
  }
  if (initializations.size() != 1)
    throw Error(path, fmt::format("has {} initialization segments", initializations.size()),
                "name a playlist, or a folder with one and its media segments");
  list.initialization = initializations.front();
  std::sort(segments.begin(), segments.end());
  for (auto& [time, name] : segments) list.segments.push_back(std::move(name));
  std::sort(list.others.begin(), list.others.end());
  return list;
}

class PlaylistReader {
 public:
  explicit PlaylistReader(const std::string& path) : path_(path) {
    const fs::path folder = fs::path(path).parent_path();
    list_.folder = folder.empty() ? fs::path(".") : folder;
    list_.others = {fs::path(path).filename()};
  }

  SegmentList Read() {
    std::istringstream lines(ReadTextFile(path_));
    bool any = false;
    for (std::string line; std::getline(lines, line);) {
      while (!line.empty() && (line.back() == '\r' || line.back() == ' ')) line.pop_back();
      any = any || line.rfind("#EXTM3U", 0) == 0;
      if (line.rfind("#EXT-X-BYTERANGE", 0) == 0) Fail("names parts of files");
      if (line.rfind("#EXT-X-KEY", 0) == 0 && line.find("METHOD=AES-128") != std::string::npos)
        Fail("names segments that are encrypted as a whole");
      if (line.rfind("#EXT-X-STREAM-INF", 0) == 0) Fail("names other playlists", "name one of those");
      if (line.rfind("#EXT-X-MAP", 0) == 0) TakeMap(line);
      if (!line.empty() && line.front() != '#') TakeSegment(Inside(line));
    }
    if (!any) Fail("is no playlist", "name a folder of segments, or a playlist that begins with #EXTM3U");
    if (list_.initialization.empty()) Fail("names no initialization segment (EXT-X-MAP)");
    return std::move(list_);
  }

 private:
  [[noreturn]] void Fail(const std::string& what, const std::string& advice = {}) const {
    throw Error(path_, what, advice);
  }

  void TakeMap(const std::string& line) {
    constexpr const char* kUri = "URI=\"";
    const size_t at = line.find(kUri);
    const size_t end = at == std::string::npos ? at : line.find('"', at + 5);
    if (end == std::string::npos) Fail("has an EXT-X-MAP without a URI");
    if (line.find("BYTERANGE") != std::string::npos) Fail("names parts of files");
    const std::string name = Inside(line.substr(at + 5, end - at - 5));
    if (!list_.initialization.empty() && list_.initialization != name)
      Fail("names several initialization segments");
    list_.initialization = name;
  }

  void TakeSegment(std::string name) {
    if (std::find(list_.segments.begin(), list_.segments.end(), name) != list_.segments.end())
      Fail(fmt::format("names \"{}\" twice", name));
    list_.segments.push_back(std::move(name));
  }

  std::string Inside(const std::string& uri) const {
    const fs::path name = fs::path(uri).lexically_normal();
    const bool outside = name.is_absolute() || uri.find("://") != std::string::npos ||
                         (!name.empty() && *name.begin() == "..");
    if (outside) Fail(fmt::format("names \"{}\", which stands outside of its folder", uri));
    return name;
  }

  std::string path_;
  SegmentList list_;
};

}  // namespace

SegmentList ReadSegmentList(const std::string& path) {
  std::error_code ignored;
  if (!fs::exists(path, ignored)) throw Error(path, "No such file or directory", "check the path");
  SegmentList list = fs::is_directory(path, ignored) ? ListFolder(path) : PlaylistReader(path).Read();
  if (list.segments.empty()) throw Error(path, "has no media segments");
  return list;
}

}  // namespace qlnmedia
