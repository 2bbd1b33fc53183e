// Looks at the boxes of a folder's files, or at the lines of a playlist.

#include "patch/segment_list.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <optional>
#include <sstream>
#include <utility>

#include "base/error.h"
#include "base/text_file.h"
#include "container/mp4/fragment.h"
#include "patch/dash_manifest.h"

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

std::string FolderOfList(const std::string& path) {
  const fs::path folder = fs::path(path).parent_path();
  return folder.empty() ? fs::path(".") : folder;
}

// Percent signs with two digits behind them are bytes of a name (IETF RFC 3986 clause 2.1).
std::string WithoutPercents(const std::string& uri) {
  std::string name;
  for (size_t at = 0; at < uri.size(); ++at) {
    unsigned byte = 0;
    const char* const digits = uri.data() + at + 1;
    const bool coded = uri[at] == '%' && at + 2 < uri.size() &&
                       std::from_chars(digits, digits + 2, byte, 16).ptr == digits + 2 && byte != 0;
    name += coded ? static_cast<char>(byte) : uri[at];
    if (coded) at += 2;
  }
  return name;
}

// A name that a playlist gives, which has to stay in its folder. Not all writers put percent signs in.
std::string InsideFolder(const std::string& playlist, const std::string& uri) {
  std::error_code ignored;
  const bool there = fs::exists(fs::path(FolderOfList(playlist)) / uri, ignored);
  const fs::path name = fs::path(there ? uri : WithoutPercents(uri)).lexically_normal();
  const bool outside =
      name.is_absolute() || uri.find("://") != std::string::npos || (!name.empty() && *name.begin() == "..");
  if (outside) throw Error(playlist, fmt::format("names \"{}\", which stands outside of its folder", uri));
  return name;
}

// The one stream of pictures of a manifest; those of all else go with it as they are.
SegmentList ListManifest(const std::string& path, const std::string& text) {
  SegmentList list;
  list.folder = FolderOfList(path);
  list.others = {fs::path(path).filename()};
  std::vector<DashStream> streams = ReadDashManifest(path, text);
  const auto isVideo = [](const DashStream& stream) { return stream.video; };
  const auto videos = std::count_if(streams.begin(), streams.end(), isVideo);
  if (videos != 1)
    throw Error(path, fmt::format("names {} streams of pictures", videos), "name a manifest of one of them");
  for (DashStream& stream : streams) {
    std::vector<std::string> names = std::move(stream.segments);
    for (const DashStream::Numbered& open : stream.numbered) {
      std::error_code ignored;
      for (unsigned number = open.first;; ++number) {
        std::string name = fmt::format("{}{:0{}}{}", open.front, number, open.width, open.behind);
        if (!fs::exists(fs::path(list.folder) / InsideFolder(path, name), ignored)) break;
        names.push_back(std::move(name));
      }
    }
    for (std::string& name : names) name = InsideFolder(path, name);
    const std::string initialization = InsideFolder(path, stream.initialization);
    if (stream.video) {
      list.initialization = initialization;
      list.segments = std::move(names);
      continue;
    }
    if (!initialization.empty()) list.others.push_back(initialization);
    list.others.insert(list.others.end(), names.begin(), names.end());
  }
  if (list.initialization.empty()) throw Error(path, "names no initialization segment");
  return list;
}

class PlaylistReader {
 public:
  PlaylistReader(const std::string& path, const std::string& text) : path_(path), text_(text) {
    list_.folder = FolderOfList(path);
    list_.others = {fs::path(path).filename()};
  }

  SegmentList Read() {
    std::istringstream lines(text_);
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

  std::string Inside(const std::string& uri) const { return InsideFolder(path_, uri); }

  std::string path_;
  const std::string& text_;
  SegmentList list_;
};

}  // namespace

SegmentList ReadSegmentList(const std::string& path) {
  std::error_code ignored;
  if (!fs::exists(path, ignored)) throw Error(path, "No such file or directory", "check the path");
  SegmentList list;
  if (fs::is_directory(path, ignored)) {
    list = ListFolder(path);
  } else {
    const std::string text = ReadTextFile(path);
    const bool manifest = text.find("<MPD") != std::string::npos || text.find(":MPD") != std::string::npos;
    list = manifest ? ListManifest(path, text) : PlaylistReader(path, text).Read();
  }
  if (list.segments.empty()) throw Error(path, "has no media segments");
  return list;
}

}  // namespace qlnmedia
