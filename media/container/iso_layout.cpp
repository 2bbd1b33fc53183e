// Walks the boxes of MP4 and MOV files on disk; nothing but heads and a few fields is read.

#include "container/iso_layout.h"

#include <algorithm>
#include <array>
#include <fstream>

namespace qlnmedia {

namespace {

constexpr int kMostDepth = 8;
// Fields of a visual sample entry in front of its boxes (ISO/IEC 14496-12 clause 12.1.3), head included.
constexpr uint64_t kVisualSampleEntryBytes = 86;

struct Box {
  std::string type;
  uint64_t at = 0;    // of its head
  uint64_t body = 0;  // behind its head
  uint64_t end = 0;
};

class Walker {
 public:
  explicit Walker(const std::string& path) : file_(path, std::ios::binary) {
    file_.seekg(0, std::ios::end);
    size_ = file_ ? static_cast<uint64_t>(file_.tellg()) : 0;
  }

  IsoLayout Layout() {
    bool mediaData = false;
    uint64_t at = 0;
    for (Box box; Next(at, size_, box); at = box.end) {
      if (box.type == "ftyp" && layout_.brand.empty()) {
        layout_.brand = TypeAt(box.body);
      } else if (box.type == "moov") {
        layout_.indexInFront = !mediaData;
        Children(box, 0);
      } else if (box.type == "mdat") {
        mediaData = true;
      } else if (box.type == "sidx") {
        layout_.segmentIndexes.push_back(box.at);
      } else if (box.type == "moof") {
        layout_.fragments.push_back(box.at);
        if (layout_.fragments.size() == 1) Children(box, 0);
      }
    }
    NoteWrongBox(at);
    return std::move(layout_);
  }

 private:
  // The box at which the walk stopped, if there is more than the end of the file. Padding of zero bytes is
  // none.
  void NoteWrongBox(uint64_t at) {
    if (at + 8 > size_) return;
    uint64_t size = Number(at, 4);
    const std::string type = TypeAt(at + 4);
    if (size == 1) size = Number(at + 8, 8);
    if (size == 0 && type == std::string(4, '\0')) return;
    layout_.wrongBox = IsoLayout::WrongBox{type, at, size, size_ - at};
  }

  uint64_t Number(uint64_t at, size_t bytes) {
    std::array<unsigned char, 8> data{};
    file_.clear();
    file_.seekg(static_cast<std::streamoff>(at));
    if (!file_.read(reinterpret_cast<char*>(data.data()), static_cast<std::streamsize>(bytes))) return 0;
    uint64_t value = 0;
    for (size_t i = 0; i < bytes; ++i) value = value << 8 | data[i];
    return value;
  }

  std::string TypeAt(uint64_t at) {
    const uint64_t type = Number(at, 4);
    std::string text;
    for (int shift = 24; shift >= 0; shift -= 8) text += static_cast<char>(type >> shift & 255);
    return text;
  }

  // The box that begins at `at`; false where none does.
  bool Next(uint64_t at, uint64_t end, Box& box) {
    if (at + 8 > end) return false;
    uint64_t size = Number(at, 4);
    box = {TypeAt(at + 4), at, at + 8, end};
    if (size == 1) {
      size = Number(at + 8, 8);
      box.body = at + 16;
    }
    if (size == 0) return true;  // up to the end
    if (size < box.body - at || size > end - at) return false;
    box.end = at + size;
    return true;
  }

  void Children(const Box& parent, int depth) {
    uint64_t at = parent.body;
    for (Box box; depth < kMostDepth && Next(at, parent.end, box); at = box.end) Take(box, depth + 1);
  }

  void Take(const Box& box, int depth) {
    const std::string& type = box.type;
    IsoTrack* const track = layout_.tracks.empty() ? nullptr : &layout_.tracks.back();
    if (type == "trak") layout_.tracks.emplace_back();
    if (type == "mvex") layout_.fragmented = true;
    if (type == "chpl") layout_.chapterList = true;
    if (type == "tfhd") layout_.baseIsMoof = (Number(box.body, 4) & 0x020000) != 0;
    for (const char* parent : {"trak", "edts", "mdia", "minf", "stbl", "udta", "traf"}) {
      if (type == parent) Children(box, depth);
    }
    if (track == nullptr) return;
    if (type == "tkhd") {
      track->id = static_cast<uint32_t>(Number(box.body + (Number(box.body, 1) == 1 ? 20 : 12), 4));
    } else if (type == "vmhd") {
      track->video = true;
    } else if (type == "stsz" || type == "stz2") {
      track->samples = static_cast<uint32_t>(Number(box.body + 8, 4));
    } else if (type == "elst") {
      TakeEdits(box, *track);
    } else if (type == "tref") {
      uint64_t at = box.body;
      for (Box reference; Next(at, box.end, reference); at = reference.end)
        track->references.push_back(reference.type);
    } else if (type == "stsd") {
      track->sampleDescriptions = static_cast<uint32_t>(Number(box.body + 4, 4));
      Box entry;
      if (!track->video || !Next(box.body + 8, box.end, entry)) return;
      uint64_t at = entry.at + kVisualSampleEntryBytes;
      for (Box inner; Next(at, entry.end, inner); at = inner.end)
        track->descriptionBoxes.push_back(inner.type);
    }
  }

  void TakeEdits(const Box& box, IsoTrack& track) {
    const size_t bytes = Number(box.body, 1) == 1 ? 8 : 4;
    const uint64_t entryBytes = 2 * bytes + 4;
    const uint64_t count = std::min(Number(box.body + 4, 4), (box.end - box.body) / entryBytes);
    const uint64_t none = bytes == 8 ? UINT64_MAX : UINT32_MAX;
    for (uint64_t i = 0; i < count; ++i) {
      const uint64_t at = box.body + 8 + i * entryBytes;
      if (Number(at + bytes, bytes) == none) continue;  // an empty edit
      ++track.edits;
      track.editsAtOtherRates = track.editsAtOtherRates || Number(at + 2 * bytes, 4) != 0x00010000;
    }
  }

  std::ifstream file_;
  uint64_t size_ = 0;
  IsoLayout layout_;
};

}  // namespace

const IsoTrack* IsoLayout::Track(uint32_t id) const {
  const auto found =
      std::find_if(tracks.begin(), tracks.end(), [id](const IsoTrack& track) { return track.id == id; });
  return found == tracks.end() ? nullptr : &*found;
}

bool IsoLayout::indexesFragments() const {
  return !segmentIndexes.empty() && !fragments.empty() && segmentIndexes.back() > fragments.front();
}

bool IsoLayout::indexHasSamples() const {
  return std::any_of(tracks.begin(), tracks.end(), [](const IsoTrack& track) { return track.samples != 0; });
}

bool IsoLayout::hasEdits() const {
  return std::any_of(tracks.begin(), tracks.end(), [](const IsoTrack& track) { return track.edits != 0; });
}

IsoLayout ReadIsoLayout(const std::string& path) { return Walker(path).Layout(); }

}  // namespace qlnmedia
