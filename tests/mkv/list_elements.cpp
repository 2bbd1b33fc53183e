// Reads the whole file into a list first, and says then what places name.

#include "mkv/list_elements.h"

#include <zlib.h>

#include <algorithm>
#include <cstdio>
#include <stdexcept>

namespace qln::test::mkv {

namespace {

const std::set<uint64_t> kMasters = {0x18538067, 0x114D9B74, 0x4DBB,     0x1C53BB6B, 0xBB,
                                     0xB7,       0xDB,       0x1F43B675, 0xA0,       0x1654AE6B,
                                     0xAE,       0xE0,       0x55B0,     0x55D0,     0x1A45DFA3};
const std::set<uint64_t> kLevelOne = {0x114D9B74, 0x1549A966, 0x1654AE6B, 0x1C53BB6B,
                                      0x1F43B675, 0x1254C367, 0x1941A469, 0x1043A770};
// Segment positions.
const std::set<uint64_t> kPlaces = {0x53AC, 0xF1, 0xEA, 0x97, 0xEB, 0xA7};
// CodecPrivate, what is said of pictures.
const std::set<uint64_t> kFacts = {0x63A2, 0x9A,   0x9D,   0xB0,   0xBA,   0x54B0, 0x54BA,
                                   0x54B2, 0x54AA, 0x54BB, 0x54CC, 0x54DD, 0x55B1, 0x55B9,
                                   0x55BA, 0x55BB, 0x55BC, 0x55BD, 0x55D0, 0x55B0, 0xE0};

struct Entry {
  uint64_t id = 0, at = 0, body = 0, end = 0;
  size_t width = 0;
  bool open = false, master = false;
  int depth = 0;
  size_t parent = 0;  // index plus 1
  bool inEntry = false;
};

struct Encoding {
  uint64_t algorithm = 0;
  bool frames = false;
  Bytes stripped;
};

std::string Hex(const uint8_t* data, size_t size) {
  std::string text;
  char piece[4];
  for (size_t i = 0; i < size; ++i) {
    std::snprintf(piece, sizeof piece, "%02X", data[i]);
    text += piece;
  }
  return text;
}

class Lister {
 public:
  Lister(const Bytes& file, const std::set<uint64_t>& tracks, bool facts)
      : file_(file), tracks_(tracks), facts_(facts) {}

  Listing Run() {
    try {
      Walk(0, file_.size(), 0, 0, false);
      for (size_t i = 0; i < entries_.size(); ++i) Line(i);
    } catch (const std::exception& problem) {
      out_.error = problem.what();
    }
    return std::move(out_);
  }

 private:
  uint64_t Big(uint64_t at, uint64_t bytes) const {
    if (at > file_.size() || bytes > file_.size() - at) throw std::runtime_error("beyond the end");
    uint64_t value = 0;
    for (uint64_t i = 0; i < bytes; ++i) value = value << 8 | file_[at + i];
    return value;
  }

  // Of a number with a marker.
  static size_t Length(uint8_t first) {
    size_t length = 1;
    for (int bit = 7; bit >= 0 && (first >> bit & 1) == 0; --bit) ++length;
    return length;
  }

  Entry Read(uint64_t at, uint64_t end) const {
    Entry entry;
    entry.at = at;
    const size_t idBytes = Length(file_[at]);
    if (idBytes > 4) throw std::runtime_error("no identifier at " + std::to_string(at));
    entry.id = Big(at, idBytes);
    entry.width = Length(static_cast<uint8_t>(Big(at + idBytes, 1)));
    if (entry.width > 8) throw std::runtime_error("no size at " + std::to_string(at));
    const uint64_t mask = (uint64_t{1} << (7 * entry.width)) - 1;
    const uint64_t size = Big(at + idBytes, entry.width) & mask;
    entry.body = at + idBytes + entry.width;
    entry.open = size == mask;
    if (!entry.open && size > end - entry.body) throw std::runtime_error("too long at " + std::to_string(at));
    entry.end = entry.open ? end : entry.body + size;
    return entry;
  }

  // Returns where it stopped: at `end`, or at what does not stand in an open master.
  uint64_t Walk(uint64_t at, uint64_t end, int depth, size_t parent, bool inEntry, bool open = false) {
    while (at < end) {
      if (depth == 0 && seenSegment_ && file_[at] != 0x1A && file_[at] != 0x18) {
        entries_.push_back({.id = 0, .at = at, .body = at, .end = end});
        return end;
      }
      Entry entry = Read(at, end);
      const bool top = entry.id == 0x18538067 || entry.id == 0x1A45DFA3;
      if (open && (top || (depth == 2 && kLevelOne.count(entry.id) != 0))) return at;
      entry.master = kMasters.count(entry.id) != 0;
      entry.depth = depth;
      entry.parent = parent;
      entry.inEntry = inEntry;
      if (entry.id == 0x18538067) seenSegment_ = true;
      entries_.push_back(entry);
      const size_t index = entries_.size();
      if (entry.master) {
        const bool within = inEntry || entry.id == 0xAE;
        entry.end = Walk(entry.body, entry.end, depth + 1, index, within, entry.open);
        entries_[index - 1].end = entry.end;
      } else if (entry.open) {
        throw std::runtime_error("no size at " + std::to_string(at));
      }
      at = entry.end;
    }
    return at;
  }

  const Entry* Above(const Entry& entry, uint64_t id) const {
    for (size_t parent = entry.parent; parent != 0; parent = entries_[parent - 1].parent) {
      if (entries_[parent - 1].id == id) return &entries_[parent - 1];
    }
    return nullptr;
  }

  // The number of the element that begins somewhere; entries of tracks count as one.
  std::string Named(uint64_t at) const {
    size_t number = 0;
    for (const Entry& entry : entries_) {
      if (entry.inEntry) continue;
      if (entry.at == at) return "element " + std::to_string(number);
      ++number;
    }
    return {};
  }

  uint64_t Value(const Entry& entry) const { return Big(entry.body, entry.end - entry.body); }

  uint64_t NumberOfTrack(size_t index) const {
    const Entry& entry = entries_[index];
    for (size_t i = index + 1; i < entries_.size() && entries_[i].at < entry.end; ++i) {
      if (entries_[i].id == 0xD7) return Value(entries_[i]);
    }
    return 0;
  }

  void Line(size_t index) {
    const Entry& entry = entries_[index];
    if (entry.id == 0xAE) track_ = NumberOfTrack(index);
    if (entry.id == 0x6D80) ReadEncodings(entry);
    const bool mine = entry.inEntry && tracks_.count(track_) != 0;
    if (mine && facts_ && (kFacts.count(entry.id) != 0 || Above(entry, 0x55D0) != nullptr)) return;
    std::string text = std::string(static_cast<size_t>(entry.depth), ' ') + Hex(file_.data() + entry.at, 0);
    char name[32];
    std::snprintf(name, sizeof name, "%llX ", static_cast<unsigned long long>(entry.id));
    text += name;
    text += entry.master ? (entry.open ? "open" : "") : Contents(entry);
    size_t least = 1;
    while (entry.end - entry.body >= (uint64_t{1} << (7 * least)) - 1) ++least;
    out_.lines.push_back(std::move(text));
    out_.sizeWidths.push_back(entry.width);
    out_.leastWidths.push_back(entry.open || entry.id == 0 ? entry.width : least);
  }

  std::string Contents(const Entry& entry) {
    const uint64_t size = entry.end - entry.body;
    const std::string plain = Hex(file_.data() + entry.body, static_cast<size_t>(size));
    if (kPlaces.count(entry.id) != 0) {
      const Entry* const segment = Above(entry, 0x18538067);
      const std::string named = segment == nullptr ? "" : Named(segment->body + Value(entry));
      return named.empty() ? plain : named;
    }
    if (entry.id == 0xF0) return Relative(entry, plain);
    if (entry.id == 0xAB) return PrevSize(entry, plain);
    if (entry.id == 0xBF && size == 4) {
      const Entry& parent = entries_[entry.parent - 1];
      uint32_t crc = 0xFFFFFFFFu;
      for (uint64_t at = entry.end; at < parent.end; ++at) {
        crc ^= file_[at];
        for (int bit = 0; bit < 8; ++bit) crc = (crc >> 1) ^ ((crc & 1) != 0 ? 0xEDB88320u : 0u);
      }
      Bytes holds;
      for (int i = 0; i < 4; ++i) holds.push_back(static_cast<uint8_t>(~crc >> (8 * i)));
      return std::equal(holds.begin(), holds.end(), file_.begin() + static_cast<long>(entry.body)) ? "holds"
                                                                                                   : plain;
    }
    if (entry.id == 0xA3 || entry.id == 0xA1) return Block(entry, plain);
    return plain;
  }

  std::string Relative(const Entry& entry, const std::string& plain) const {
    const Entry* const positions = Above(entry, 0xB7);
    const Entry* const segment = Above(entry, 0x18538067);
    if (positions == nullptr || segment == nullptr) return plain;
    for (const Entry& other : entries_) {
      if (other.id != 0xF1 || other.at < positions->at || other.at >= positions->end) continue;
      for (const Entry& cluster : entries_) {
        if (cluster.id != 0x1F43B675 || cluster.at != segment->body + Value(other)) continue;
        const std::string named = Named(cluster.body + Value(entry));
        if (!named.empty()) return named;
      }
    }
    return plain;
  }

  std::string PrevSize(const Entry& entry, const std::string& plain) const {
    const Entry* before = nullptr;
    for (const Entry& other : entries_) {
      if (other.id == 0x1F43B675 && other.end <= entry.at &&
          Above(other, 0x18538067) == Above(entry, 0x18538067))
        before = &other;
    }
    return before != nullptr && before->end - before->at == Value(entry) ? "right" : plain;
  }

  void ReadEncodings(const Entry& entry) {
    Bytes& list = encodings_[track_];
    list.assign(file_.begin() + static_cast<long>(entry.body), file_.begin() + static_cast<long>(entry.end));
  }

  // One encoding of zlib (the default) or of header stripping, as tests write them.
  Bytes Undone(uint64_t track, Bytes frame) const {
    const auto found = encodings_.find(track);
    if (found == encodings_.end()) return frame;
    const Bytes& list = found->second;
    const auto has = [&list](const Bytes& wanted) {
      return std::search(list.begin(), list.end(), wanted.begin(), wanted.end());
    };
    if (has({0x50, 0x32, 0x81, 0x02}) != list.end()) return frame;  // of private data alone
    const auto stripped = has({0x42, 0x55});
    if (stripped != list.end()) {
      const auto size = static_cast<long>(*(stripped + 2) & 0x7F);
      frame.insert(frame.begin(), stripped + 3, stripped + 3 + size);
      return frame;
    }
    Bytes out(1 << 20);
    uLongf size = out.size();
    if (uncompress(out.data(), &size, frame.data(), frame.size()) != Z_OK)
      throw std::runtime_error("no zlib frame");
    out.resize(size);
    return out;
  }

  std::string Block(const Entry& entry, const std::string& plain) {
    const size_t trackBytes = Length(static_cast<uint8_t>(Big(entry.body, 1)));
    const uint64_t track = Big(entry.body, trackBytes) & ((uint64_t{1} << (7 * trackBytes)) - 1);
    if (tracks_.count(track) == 0) return plain;
    uint64_t at = entry.body + trackBytes + 2;
    const uint64_t flags = Big(at++, 1);
    const uint64_t kind = flags & 6;
    std::vector<uint64_t> sizes;
    if (kind == 0) {
      sizes = {entry.end - at};
    } else {
      const uint64_t count = Big(at++, 1) + 1;
      for (uint64_t i = 0; kind != 4 && i + 1 < count; ++i) {
        uint64_t size = 0;
        if (kind == 2) {
          uint64_t byte = 255;
          while (byte == 255) size += byte = Big(at++, 1);
        } else {
          const size_t bytes = Length(static_cast<uint8_t>(Big(at, 1)));
          size = Big(at, bytes) & ((uint64_t{1} << (7 * bytes)) - 1);
          if (i > 0) size += sizes.back() - ((uint64_t{1} << (7 * bytes - 1)) - 1);
          at += bytes;
        }
        sizes.push_back(size);
      }
      uint64_t sum = 0;
      for (const uint64_t size : sizes) sum += size;
      if (kind == 4)
        sizes.assign(count, (entry.end - at) / count);
      else
        sizes.push_back(entry.end - at - sum);
    }
    for (const uint64_t size : sizes) {
      Big(at + size, 0);
      out_.frames[track].push_back(Undone(
          track, Bytes(file_.begin() + static_cast<long>(at), file_.begin() + static_cast<long>(at + size))));
      at += size;
    }
    if (at != entry.end) throw std::runtime_error("frames do not fill their block");
    // Fixed sizes may have to become told ones.
    return Hex(file_.data() + entry.body, trackBytes + 2) + " " + std::to_string(flags & ~uint64_t{6}) +
           (kind == 0   ? ""
            : kind == 2 ? " xiph"
                        : " laced") +
           " " + std::to_string(sizes.size()) + " frames";
  }

  const Bytes& file_;
  const std::set<uint64_t>& tracks_;
  bool facts_;
  bool seenSegment_ = false;
  std::vector<Entry> entries_;
  uint64_t track_ = 0;
  std::map<uint64_t, Bytes> encodings_;
  Listing out_;
};

}  // namespace

Listing List(const Bytes& file, const std::set<uint64_t>& tracks, bool facts) {
  return Lister(file, tracks, facts).Run();
}

std::string Difference(const Listing& was, const Listing& is) {
  if (!was.error.empty()) return "the input: " + was.error;
  if (!is.error.empty()) return "the output: " + is.error;
  for (size_t i = 0; i < std::max(was.lines.size(), is.lines.size()); ++i) {
    if (i >= was.lines.size()) return "came in: " + is.lines[i].substr(0, 200);
    if (i >= is.lines.size()) return "missing: " + was.lines[i].substr(0, 200);
    if (was.lines[i] != is.lines[i])
      return std::to_string(i) + ": " + was.lines[i].substr(0, 200) + " became " + is.lines[i].substr(0, 200);
    if (is.sizeWidths[i] != std::max(was.sizeWidths[i], is.leastWidths[i]))
      return std::to_string(i) + ": " + is.lines[i].substr(0, 200) + ": a size of another width";
  }
  return {};
}

}  // namespace qln::test::mkv
