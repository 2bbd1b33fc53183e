// Goes down the elements of a manifest; what one says holds for those inside of it unless they say otherwise.

#include "patch/dash_manifest.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <cstring>
#include <pugixml.hpp>
#include <string_view>
#include <utility>

#include "base/error.h"

namespace qlnmedia {

namespace {

constexpr size_t kMostSegments = 1000000;

// Without the prefix of its name space.
std::string_view NameOf(const pugi::xml_node& element) {
  const std::string_view name = element.name();
  return name.substr(name.find(':') + 1);
}

// What SegmentTemplate and SegmentList say, from the outermost element inwards.
struct Timeline {
  std::string base;
  std::string kind;  // of pictures, sound or text
  std::string initialization, media;
  uint64_t startNumber = 1;
  std::vector<uint64_t> timeline;  // begin of each segment
  std::vector<std::string> listed;
  bool oneFile = false;
};

// A reference as it stands inside of a base (IETF RFC 3986 clause 5.2): what is behind the base's last slash
// goes.
std::string Resolved(const std::string& base, const std::string& reference) {
  if (reference.empty()) return base;
  if (reference.front() == '/' || reference.find("://") != std::string::npos) return reference;
  return base.substr(0, base.rfind('/') + 1) + reference;
}

// What a template is filled in with for one segment.
struct Filling {
  uint64_t time = 0;
  uint64_t number = 0;
};

class ManifestReader {
 public:
  explicit ManifestReader(const std::string& path) : path_(path) {}

  std::vector<DashStream> Read(const std::string& text) {
    pugi::xml_document document;
    const pugi::xml_parse_result result = document.load_buffer(text.data(), text.size());
    if (!result)
      throw Error(path_,
                  fmt::format("is cut off, or no XML: {} at byte {}", result.description(), result.offset));
    const pugi::xml_node manifest = document.document_element();
    if (NameOf(manifest) != "MPD") throw Error(path_, "is no manifest");
    const Timeline outermost = Inside(manifest, {});
    int periods = 0;
    for (const pugi::xml_node& period : manifest.children()) {
      if (NameOf(period) != "Period") continue;
      if (++periods > 1) throw Error(path_, "names several periods", "name a playlist of one of them");
      const Timeline ofPeriod = Inside(period, outermost);
      for (const pugi::xml_node& set : period.children()) {
        if (NameOf(set) == "AdaptationSet") TakeSet(set, ofPeriod);
      }
    }
    return std::move(streams_);
  }

 private:
  uint64_t Number(std::string_view text) const {
    uint64_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size())
      throw Error(path_, fmt::format("has a number that is none: \"{}\"", text));
    return value;
  }
  uint64_t Number(const pugi::xml_attribute& attribute, uint64_t otherwise) const {
    return attribute ? Number(attribute.value()) : otherwise;
  }

  static void Take(const pugi::xml_attribute& attribute, std::string& to) {
    if (attribute) to = attribute.value();
  }

  void TakeSet(const pugi::xml_node& set, const Timeline& around) {
    const Timeline ofSet = Inside(set, around);
    for (const pugi::xml_node& representation : set.children()) {
      if (NameOf(representation) != "Representation") continue;
      id_ = representation.attribute("id").value();
      bandwidth_ = representation.attribute("bandwidth").value();
      TakeStream(Inside(representation, ofSet));
    }
  }

  // What holds inside of an element.
  Timeline Inside(const pugi::xml_node& level, Timeline now) const {
    for (const char* const attribute : {"contentType", "mimeType"}) {
      const std::string_view kind = level.attribute(attribute).value();
      if (!kind.empty()) now.kind = kind.substr(0, kind.find('/'));
    }
    bool located = false;
    for (const pugi::xml_node& element : level.children()) {
      const std::string_view name = NameOf(element);
      // Further ones are other places for the same segments.
      if (name == "BaseURL" && !located) {
        located = true;
        std::string text = element.child_value();
        text.erase(0, text.find_first_not_of(" \t\r\n"));
        text.erase(text.find_last_not_of(" \t\r\n") + 1);
        now.base = Resolved(now.base, text);
      } else if (name == "SegmentBase") {
        now.oneFile = true;
      } else if (name == "SegmentTemplate" || name == "SegmentList") {
        Take(element.attribute("initialization"), now.initialization);
        Take(element.attribute("media"), now.media);
        now.startNumber = Number(element.attribute("startNumber"), now.startNumber);
        const auto children = element.children();
        if (std::any_of(children.begin(), children.end(),
                        [](const pugi::xml_node& part) { return NameOf(part) == "SegmentURL"; }))
          now.listed.clear();
        for (const pugi::xml_node& part : element.children()) TakePart(part, now);
      }
    }
    return now;
  }

  void TakePart(const pugi::xml_node& part, Timeline& now) const {
    const std::string_view name = NameOf(part);
    if (name == "Initialization") {
      Take(part.attribute("sourceURL"), now.initialization);
    } else if (name == "SegmentURL") {
      if (!part.attribute("media") || part.attribute("mediaRange")) now.oneFile = true;
      now.listed.emplace_back(part.attribute("media").value());
    } else if (name == "SegmentTimeline") {
      TakeTimes(part, now);
    }
  }

  void TakeTimes(const pugi::xml_node& timeline, Timeline& now) const {
    now.timeline.clear();
    uint64_t time = 0;
    for (const pugi::xml_node& run : timeline.children()) {
      if (NameOf(run) != "S") continue;
      time = Number(run.attribute("t"), time);
      const uint64_t duration = Number(run.attribute("d"), 0);
      if (run.attribute("r").value()[0] == '-') throw Error(path_, "names segments without saying how many");
      const uint64_t repeats = Number(run.attribute("r"), 0);
      if (repeats >= kMostSegments - now.timeline.size())
        throw Error(path_, "names more than a million segments");
      for (uint64_t i = 0; i <= repeats; ++i) {
        now.timeline.push_back(time);
        time += duration;
      }
    }
  }

  // A template with its names filled in: "$Number%05d$" and the like; "$$" is a dollar sign. `open` gets
  // what stands in front of the number, and its width, where it is left open.
  std::string Filled(const std::string& text, const Filling* of, DashStream::Numbered* open) const {
    std::string out;
    bool opened = false;
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
      const auto width = static_cast<unsigned>(std::min<uint64_t>(format.empty() ? 0 : Number(format), 20));
      if (what.empty()) {
        out += '$';
      } else if (what == "RepresentationID") {
        out += id_;
      } else if (what == "Bandwidth") {
        out += bandwidth_;
      } else if (of != nullptr && what == "Time") {
        out += fmt::format("{:0{}}", of->time, width);
      } else if (of != nullptr && what == "Number") {
        out += fmt::format("{:0{}}", of->number, width);
      } else if (open != nullptr && what == "Number") {
        if (std::exchange(opened, true))
          throw Error(path_, fmt::format("does not say how many segments there are of \"{}\"", text));
        open->front = std::exchange(out, {});
        open->width = width;
      } else {
        throw Error(path_, fmt::format("has a template that nothing fills: \"{}\"", text));
      }
    }
    return out;
  }

  void TakeStream(const Timeline& of) {
    DashStream stream;
    stream.id = id_;
    stream.video = of.kind == "video";
    if (of.oneFile) {
      if (stream.video)
        throw Error(path_, fmt::format("names parts of files for stream \"{}\"", id_),
                    "patch the file itself");
      return;
    }
    if (!of.initialization.empty())
      stream.initialization = Resolved(of.base, Filled(of.initialization, nullptr, nullptr));
    for (const std::string& name : of.listed) stream.segments.push_back(Resolved(of.base, name));
    if (!of.media.empty()) {
      for (uint64_t i = 0; i < of.timeline.size(); ++i) {
        const Filling segment{of.timeline[i], of.startNumber + i};
        stream.segments.push_back(Resolved(of.base, Filled(of.media, &segment, nullptr)));
      }
    }
    if (stream.segments.empty() && !of.media.empty()) {
      DashStream::Numbered open;
      open.first = static_cast<unsigned>(of.startNumber);
      open.behind = Filled(of.media, nullptr, &open);
      open.front = Resolved(of.base, open.front);
      stream.numbered.push_back(open);
    }
    streams_.push_back(std::move(stream));
  }

  const std::string& path_;
  std::vector<DashStream> streams_;
  std::string id_;
  std::string bandwidth_;
};

}  // namespace

std::vector<DashStream> ReadDashManifest(const std::string& path, const std::string& text) {
  return ManifestReader(path).Read(text);
}

}  // namespace qlnmedia
