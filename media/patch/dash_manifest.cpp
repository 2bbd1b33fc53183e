// Goes over the tags of a manifest; what an AdaptationSet says holds for its Representations unless they say
// otherwise.

#include "patch/dash_manifest.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <map>
#include <optional>
#include <utility>

#include "base/error.h"

namespace qlnmedia {

namespace {

constexpr size_t kMostSegments = 1000000;

struct Tag {
  std::string name;  // without the prefix of its name space
  bool closing = false;
  bool empty = false;
  std::map<std::string, std::string> attributes;
  std::string text;  // up to the next tag

  const std::string* Find(const char* attribute) const {
    const auto found = attributes.find(attribute);
    return found == attributes.end() ? nullptr : &found->second;
  }
};

std::string Unescaped(std::string text) {
  constexpr std::pair<const char*, const char*> kEntities[] = {
      {"&lt;", "<"}, {"&gt;", ">"}, {"&quot;", "\""}, {"&apos;", "'"}, {"&amp;", "&"}};
  for (const auto& [entity, character] : kEntities) {
    for (size_t at = 0; (at = text.find(entity, at)) != std::string::npos; ++at)
      text.replace(at, std::string(entity).size(), character);
  }
  return text;
}

class TagReader {
 public:
  TagReader(const std::string& path, const std::string& text) : path_(path), text_(text) {}

  std::optional<Tag> Next() {
    for (;;) {
      at_ = text_.find('<', at_);
      if (at_ == std::string::npos) return std::nullopt;
      if (text_.compare(at_, 4, "<!--") == 0) {
        Skip("-->");
      } else if (text_.compare(at_, 9, "<![CDATA[") == 0) {
        Skip("]]>");
      } else if (text_.compare(at_, 2, "<?") == 0 || text_.compare(at_, 2, "<!") == 0) {
        Skip(">");
      } else {
        return Read();
      }
    }
  }

 private:
  [[noreturn]] void Fail() const { throw Error(path_, "is cut off, or no XML"); }
  void Skip(const char* end) {
    const size_t found = text_.find(end, at_);
    if (found == std::string::npos) Fail();
    at_ = found + 1;
  }

  Tag Read() {
    Tag tag;
    ++at_;
    if (At() == '/') {
      tag.closing = true;
      ++at_;
    }
    tag.name = Word();
    for (;;) {
      Blanks();
      if (At() == '>') break;
      if (At() == '/') {
        tag.empty = true;
        ++at_;
        continue;
      }
      const std::string name = Word();
      Blanks();
      if (name.empty() || At() != '=') Fail();
      ++at_;
      Blanks();
      const char quote = At();
      const size_t end = quote == '"' || quote == '\'' ? text_.find(quote, at_ + 1) : std::string::npos;
      if (end == std::string::npos) Fail();
      tag.attributes[name] = Unescaped(text_.substr(at_ + 1, end - at_ - 1));
      at_ = end + 1;
    }
    ++at_;
    const size_t colon = tag.name.find(':');
    if (colon != std::string::npos) tag.name.erase(0, colon + 1);
    tag.text = Unescaped(text_.substr(at_, std::min(text_.find('<', at_), text_.size()) - at_));
    return tag;
  }

  char At() const {
    if (at_ >= text_.size()) Fail();
    return text_[at_];
  }
  void Blanks() {
    while (std::string(" \t\r\n").find(At()) != std::string::npos) ++at_;
  }
  std::string Word() {
    const size_t from = at_;
    while (std::string(" \t\r\n=/>").find(At()) == std::string::npos) ++at_;
    return text_.substr(from, at_ - from);
  }

  const std::string& path_;
  const std::string& text_;
  size_t at_ = 0;
};

// What SegmentTemplate and SegmentList say, from the outermost element inwards.
struct Segments {
  std::string base;
  std::string kind;  // of pictures, sound or text
  std::string initialization, media;
  uint64_t startNumber = 1;
  std::vector<std::pair<uint64_t, uint64_t>> timeline;  // begin and number of each segment
  std::vector<std::string> listed;
  bool oneFile = false;
};

class ManifestReader {
 public:
  ManifestReader(const std::string& path, const std::string& text) : path_(path), tags_(path, text) {}

  std::vector<DashStream> Read() {
    bool any = false;
    while (const auto tag = tags_.Next()) {
      any = any || tag->name == "MPD";
      if (tag->closing) {
        Close(tag->name);
      } else {
        Open(*tag);
        if (tag->empty) Close(tag->name);
      }
    }
    if (!any || depth_.size() != 1) throw Error(path_, "is cut off, or no manifest");
    return std::move(streams_);
  }

 private:
  static bool IsLevel(const std::string& name) {
    return name == "MPD" || name == "Period" || name == "AdaptationSet" || name == "Representation";
  }

  uint64_t Number(const std::string* text, uint64_t otherwise) const {
    if (text == nullptr) return otherwise;
    uint64_t value = 0;
    const auto [end, error] = std::from_chars(text->data(), text->data() + text->size(), value);
    if (error != std::errc() || end != text->data() + text->size())
      throw Error(path_, fmt::format("has a number that is none: \"{}\"", *text));
    return value;
  }

  void Open(const Tag& tag) {
    if (tag.name == "Period" && ++periods_ > 1)
      throw Error(path_, "names several periods", "name a playlist of one of them");
    if (IsLevel(tag.name)) {
      depth_.push_back(depth_.back());
      if (tag.name == "Representation") id_ = tag.Find("id") == nullptr ? "" : *tag.Find("id");
      bandwidth_ = tag.Find("bandwidth") == nullptr ? "" : *tag.Find("bandwidth");
      for (const char* attribute : {"contentType", "mimeType"}) {
        if (const std::string* const kind = tag.Find(attribute))
          depth_.back().kind = kind->substr(0, kind->find('/'));
      }
    }
    Segments& now = depth_.back();
    const auto take = [&tag](const char* attribute, std::string& to) {
      if (const std::string* const value = tag.Find(attribute)) to = *value;
    };
    if (tag.name == "BaseURL") {
      std::string text = tag.text;
      text.erase(0, text.find_first_not_of(" \t\r\n"));
      text.erase(text.find_last_not_of(" \t\r\n") + 1);
      now.base += text;
    } else if (tag.name == "SegmentTemplate") {
      take("initialization", now.initialization);
      take("media", now.media);
      now.startNumber = Number(tag.Find("startNumber"), now.startNumber);
    } else if (tag.name == "SegmentTimeline") {
      now.timeline.clear();
      time_ = 0;
    } else if (tag.name == "S") {
      TakeTimes(tag, now);
    } else if (tag.name == "Initialization") {
      take("sourceURL", now.initialization);
    } else if (tag.name == "SegmentURL") {
      if (tag.Find("media") == nullptr || tag.Find("mediaRange") != nullptr) now.oneFile = true;
      now.listed.push_back(tag.Find("media") == nullptr ? "" : *tag.Find("media"));
    } else if (tag.name == "SegmentBase") {
      now.oneFile = true;
    }
  }

  void TakeTimes(const Tag& tag, Segments& now) {
    time_ = Number(tag.Find("t"), time_);
    const uint64_t duration = Number(tag.Find("d"), 0);
    const std::string* const repeats = tag.Find("r");
    if (repeats != nullptr && !repeats->empty() && repeats->front() == '-')
      throw Error(path_, "names segments without saying how many");
    for (uint64_t left = Number(repeats, 0) + 1; left > 0; --left) {
      if (now.timeline.size() == kMostSegments) throw Error(path_, "names more than a million segments");
      now.timeline.emplace_back(time_, now.startNumber + now.timeline.size());
      time_ += duration;
    }
  }

  void Close(const std::string& name) {
    if (!IsLevel(name)) return;
    if (depth_.size() < 2) throw Error(path_, "is cut off, or no XML");
    if (name == "Representation") TakeStream(depth_.back());
    depth_.pop_back();
  }

  // A template with its names filled in: "$Number%05d$" and the like; "$$" is a dollar sign. `place` gets
  // where the number would stand, and its width, where it is left open.
  std::string Filled(const std::string& text, const std::pair<uint64_t, uint64_t>* of,
                     DashStream::Numbered* open) const {
    std::string out;
    for (size_t at = 0; at < text.size(); ++at) {
      if (text[at] != '$') {
        out += text[at];
        continue;
      }
      const size_t end = text.find('$', at + 1);
      if (end == std::string::npos)
        throw Error(path_, fmt::format("has a template that is none: \"{}\"", text));
      const std::string name = text.substr(at + 1, end - at - 1);
      at = end;
      const size_t percent = name.find('%');
      const std::string what = name.substr(0, percent);
      const size_t digits = percent == std::string::npos ? std::string::npos : percent + 1;
      const std::string format =
          digits == std::string::npos ? "" : name.substr(digits, name.find('d', digits) - digits);
      const auto width =
          static_cast<unsigned>(std::min<uint64_t>(format.empty() ? 0 : Number(&format, 0), 20));
      if (what.empty()) {
        out += '$';
      } else if (what == "RepresentationID") {
        out += id_;
      } else if (what == "Bandwidth") {
        out += bandwidth_;
      } else if (of != nullptr && what == "Time") {
        out += fmt::format("{:0{}}", of->first, width);
      } else if (of != nullptr && what == "Number") {
        out += fmt::format("{:0{}}", of->second, width);
      } else if (open != nullptr && what == "Number") {
        open->front = std::exchange(out, {});
        open->width = width;
      } else {
        throw Error(path_, fmt::format("has a template that nothing fills: \"{}\"", text));
      }
    }
    return out;
  }

  void TakeStream(const Segments& of) {
    DashStream stream;
    stream.id = id_;
    stream.video = of.kind == "video";
    if (of.oneFile) {
      if (stream.video)
        throw Error(path_, fmt::format("names parts of files for stream \"{}\"", id_),
                    "patch the file itself");
      return;
    }
    stream.initialization = of.base + Filled(of.initialization, nullptr, nullptr);
    for (const std::string& name : of.listed) stream.segments.push_back(of.base + name);
    for (const auto& segment : of.timeline)
      stream.segments.push_back(of.base + Filled(of.media, &segment, nullptr));
    if (stream.segments.empty() && !of.media.empty()) {
      DashStream::Numbered open;
      open.first = static_cast<unsigned>(of.startNumber);
      open.behind = Filled(of.media, nullptr, &open);
      open.front = of.base + open.front;
      stream.numbered.push_back(open);
    }
    streams_.push_back(std::move(stream));
  }

  const std::string& path_;
  TagReader tags_;
  std::vector<Segments> depth_{1};
  std::vector<DashStream> streams_;
  std::string id_;
  std::string bandwidth_;
  uint64_t time_ = 0;
  int periods_ = 0;
};

}  // namespace

std::vector<DashStream> ReadDashManifest(const std::string& path, const std::string& text) {
  return ManifestReader(path, text).Read();
}

}  // namespace qlnmedia
