// Walks EBML elements (RFC 8794) and counts those that hold values.

#include "container/mkv_head.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cstdint>
#include <map>
#include <optional>
#include <string_view>

#include "container/mp4/source.h"

namespace qlnmedia {

namespace {

constexpr uint32_t kCluster = 0x1F43B675;
constexpr uint32_t kTrackEntry = 0xAE;

// Elements that hold others and matter here.
constexpr uint32_t kMasters[] = {0x18538067, 0x1549A966, 0x1654AE6B, kTrackEntry, 0xE0,       0x55B0,
                                 0x55D0,     0x7670,     0xE1,       0xE2,        0x1043A770, 0x45B9,
                                 0xB6,       0x80,       0x8F,       0x6944,      0x1254C367, 0x7373,
                                 0x63C0,     0x67C8,     0x1941A469, 0x61A7,      0x41E4,     0x6924};

// What a muxer makes anew, or writes down as another element.
constexpr uint32_t kAnew[] = {kCluster,    // packets, which are compared
                              0x1C53BB6B,  // Cues
                              0x114D9B74,  // SeekHead
                              0x1A45DFA3,  // EBML
                              0xEC,        // Void
                              0xBF,        // CRC-32
                              0x6D80,      // ContentEncodings
                              0x73A4,      // SegmentUID
                              0x45BC,      // EditionUID
                              0x2AD7B1,    // TimestampScale
                              0x4489,      // Duration
                              0x63CA,      // TargetType, a word for TargetTypeValue
                              0x23314F,    // TrackTimestampScale, which is deprecated
                              0x6DE7,      // MinCache, MaxCache: hints of one player
                              0x6DF8,
                              0x54B0,  // DisplayWidth, DisplayHeight: the shape is compared
                              0x54BA,
                              0x23E383,  // DefaultDuration: durations are compared
                              0x4660,    // FileMimeType, FileUID, TagAttachmentUID
                              0x46AE,     0x63C6,
                              0x45A3,  // TagName, TagString, TagTrackUID: tags are compared as such
                              0x4487,     0x63C5};

// A value that says no more than the absence of its element, and names of what muxers leave out.
struct Known {
  uint32_t id;
  const char* name;
  std::string_view absent;  // number or text
};
constexpr Known kKnown[] = {{0x7384, "SegmentFilename", {}},
                            {0x3CB923, "PrevUUID", {}},
                            {0x3EB923, "NextUUID", {}},
                            {0x4444, "SegmentFamily", {}},
                            {0xB9, "FlagEnabled", "1"},
                            {0x88, "FlagDefault", "1"},
                            {0x55AA, "FlagForced", "0"},
                            {0x55AB, "FlagHearingImpaired", "0"},
                            {0x55AC, "FlagVisualImpaired", "0"},
                            {0x55AD, "FlagTextDescriptions", "0"},
                            {0x55AE, "FlagOriginal", "0"},
                            {0x55AF, "FlagCommentary", "0"},
                            {0x9C, "FlagLacing", "1"},
                            {0x234E7A, "DefaultDecodedFieldDuration", {}},
                            {0x537F, "TrackOffset", "0"},
                            {0x55EE, "MaxBlockAdditionID", "0"},
                            {0x22B59C, "Language", "eng"},
                            {0x22B59D, "LanguageBCP47", {}},
                            {0x258688, "CodecName", {}},
                            {0xAA, "CodecDecodeAll", "1"},
                            {0x7446, "AttachmentLink", {}},
                            {0x56AA, "CodecDelay", "0"},
                            {0x56BB, "SeekPreRoll", "0"},
                            {0x9A, "FlagInterlaced", "0"},
                            {0x9D, "FieldOrder", "2"},
                            {0x53B8, "StereoMode", "0"},
                            {0x53C0, "AlphaMode", "0"},
                            {0x54AA, "PixelCropBottom", "0"},
                            {0x54BB, "PixelCropTop", "0"},
                            {0x54CC, "PixelCropLeft", "0"},
                            {0x54DD, "PixelCropRight", "0"},
                            {0x54B2, "DisplayUnit", "0"},
                            {0x54B3, "AspectRatioType", "0"},
                            {0x2EB524, "UncompressedFourCC", {}},
                            {0x55B1, "MatrixCoefficients", "2"},
                            {0x55B2, "BitsPerChannel", "0"},
                            {0x55B3, "ChromaSubsamplingHorz", {}},
                            {0x55B4, "ChromaSubsamplingVert", {}},
                            {0x55B5, "CbSubsamplingHorz", {}},
                            {0x55B6, "CbSubsamplingVert", {}},
                            {0x55B7, "ChromaSitingHorz", "0"},
                            {0x55B8, "ChromaSitingVert", "0"},
                            {0x55B9, "Range", "0"},
                            {0x55BA, "TransferCharacteristics", "2"},
                            {0x55BB, "Primaries", "2"},
                            {0x78B5, "OutputSamplingFrequency", {}},
                            {0x6264, "BitDepth", {}},
                            {0x45BD, "EditionFlagHidden", "0"},
                            {0x45DB, "EditionFlagDefault", "0"},
                            {0x45DD, "EditionFlagOrdered", "0"},
                            {0x5654, "ChapterStringUID", {}},
                            {0x98, "ChapterFlagHidden", "0"},
                            {0x4598, "ChapterFlagEnabled", "1"},
                            {0x6E67, "ChapterSegmentUUID", {}},
                            {0x63C3, "ChapterPhysicalEquiv", {}},
                            {0x437C, "ChapLanguage", "eng"},
                            {0x437D, "ChapLanguageBCP47", {}},
                            {0x437E, "ChapCountry", {}},
                            {0x68CA, "TargetTypeValue", "50"},
                            {0x447A, "TagLanguage", "und"},
                            {0x447B, "TagLanguageBCP47", {}},
                            {0x4484, "TagDefault", "1"},
                            {0x467E, "FileDescription", {}}};

template <class List>
bool Holds(const List& list, uint32_t id) {
  return std::find(std::begin(list), std::end(list), id) != std::end(list);
}

class Head {
 public:
  explicit Head(const std::string& path) : file_(path) { Walk(0, file_.size(), "the file", 0); }

  // How often a value stands at a place.
  using Place = std::pair<std::string, std::string>;  // whose it is, and its name
  struct Count {
    int all = 0;
    int telling = 0;  // those that say more than their absence would
  };
  const std::map<Place, Count>& counts() const { return counts_; }

 private:
  struct Element {
    uint32_t id = 0;
    uint64_t at = 0;  // of its body
    uint64_t size = 0;
    bool open = false;  // its size is not told
  };

  std::optional<Element> ElementAt(uint64_t at, uint64_t end) const {
    std::array<uint8_t, 12> head{};
    const auto there = static_cast<size_t>(std::min<uint64_t>(head.size(), end - at));
    file_.Read(at, std::span(head).first(there));
    Element element;
    const auto idBytes = static_cast<size_t>(std::countl_zero(head[0])) + 1;
    if (idBytes > 4 || idBytes >= there) return {};
    for (size_t i = 0; i < idBytes; ++i) element.id = element.id << 8 | head[i];
    const auto sizeBytes = static_cast<size_t>(std::countl_zero(head[idBytes])) + 1;
    if (sizeBytes > 8 || idBytes + sizeBytes > there) return {};
    const uint64_t most = (uint64_t{1} << (7 * sizeBytes)) - 1;
    for (size_t i = 0; i < sizeBytes; ++i) element.size = element.size << 8 | head[idBytes + i];
    element.size &= most;
    element.at = at + idBytes + sizeBytes;
    element.open = element.size == most;
    element.size = std::min(element.open ? end : element.size, end - element.at);
    return element;
  }

  void Walk(uint64_t at, uint64_t end, const std::string& where, int depth) {
    constexpr int kDeepest = 12;
    while (at < end) {
      const std::optional<Element> element = ElementAt(at, end);
      if (!element) return;
      if (Holds(kMasters, element->id) && depth < kDeepest) {
        Walk(element->at, element->at + element->size, PlaceOf(element->id, where), depth + 1);
      } else if (!Holds(kAnew, element->id)) {
        Take(*element, where);
      }
      if (element->open && element->id == kCluster) return;  // a live stream, whose head stands in front
      at = element->at + element->size;
    }
  }

  std::string PlaceOf(uint32_t id, const std::string& where) {
    if (id == kTrackEntry) return fmt::format("stream {}", tracks_++);
    if (id == 0x1043A770) return "the chapters";
    if (id == 0x1254C367) return "the tags";
    if (id == 0x1941A469) return "the attachments";
    return where;
  }

  void Take(const Element& element, const std::string& where) {
    const auto* const known = std::find_if(std::begin(kKnown), std::end(kKnown),
                                           [&](const Known& one) { return one.id == element.id; });
    const bool named = known != std::end(kKnown);
    Count& count = counts_[{where, named ? known->name : fmt::format("element 0x{:X}", element.id)}];
    ++count.all;
    if (!named || !SaysNoMore(element, *known)) ++count.telling;
  }

  bool SaysNoMore(const Element& element, const Known& known) const {
    constexpr uint64_t kMost = 8;
    if (element.size > kMost) return false;
    std::array<uint8_t, kMost> bytes{};
    const auto body = std::span(bytes).first(static_cast<size_t>(element.size));
    file_.Read(element.at, body);
    const std::string text(body.begin(), std::find(body.begin(), body.end(), 0));
    // A language without region or script is what the older element says as well.
    if (std::string_view(known.name).ends_with("BCP47")) return text.size() <= 3;
    uint64_t number = 0;
    for (const uint8_t byte : body) number = number << 8 | byte;
    return !known.absent.empty() && (text == known.absent || std::to_string(number) == known.absent);
  }

  mp4::FileSource file_;
  int tracks_ = 0;
  std::map<Place, Count> counts_;
};

}  // namespace

std::vector<std::string> LostMkvElements(const std::string& was, const std::string& is) {
  const Head before(was);
  const Head after(is);
  std::map<std::string, std::string> lost;
  for (const auto& [place, count] : before.counts()) {
    const auto found = after.counts().find(place);
    if (count.telling <= (found == after.counts().end() ? 0 : found->second.all)) continue;
    std::string& names = lost[place.first];
    names += (names.empty() ? "" : ", ") + place.second;
  }
  std::vector<std::string> lines;
  for (const auto& [where, names] : lost) lines.push_back(where + ": " + names);
  return lines;
}

}  // namespace qlnmedia
