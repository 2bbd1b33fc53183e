// Both files are walked side by side.

#include "container/mkv/kept_elements.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>

#include "base/error.h"
#include "base/read_error.h"
#include "container/mkv/shape.h"

namespace qlnmedia::mkv {

namespace {

constexpr uint64_t kLongBody = 64 << 10;
constexpr uint64_t kPiece = 1 << 16;

// What a change may name of a track.
constexpr uint64_t kNamed[] = {id::kCodecPrivate, id::kFlagInterlaced, id::kFieldOrder,    id::kPixelWidth,
                               id::kPixelHeight,  id::kDisplayWidth,   id::kDisplayHeight, id::kDisplayUnit,
                               id::kCropBottom,   id::kCropTop,        id::kCropLeft,      id::kCropRight,
                               id::kMatrix,       id::kRange,          id::kTransfer,      id::kPrimaries,
                               id::kMaxCll,       id::kMaxFall,        id::kMastering,     id::kCrc};

// Parts of a segment beside clusters, whose identifiers have 4 bytes.
constexpr size_t kPartIdBytes = 4;
bool IsPart(uint64_t id) {
  return id == id::kSeekHead || id == id::kInfo || id == id::kTracks || id == id::kCues || id == id::kTags ||
         id == id::kAttachments || id == id::kChapters;
}

bool IsNamed(uint64_t id) { return std::find(std::begin(kNamed), std::end(kNamed), id) != std::end(kNamed); }

// What was found, told apart from what cannot be read.
class Different : public Error {
 public:
  using Error::Error;
};

class Comparison {
 public:
  Comparison(const Source& before, const Source& after, const std::set<uint64_t>& changed,
             const std::string& name, bool whole)
      : before_(before),
        after_(after),
        was_(before, kHeadWindow),
        is_(after, kHeadWindow),
        layoutWas_(mkv::ReadLayout(before)),
        layoutIs_(mkv::ReadLayout(after)),
        changed_(changed),
        name_(name),
        whole_(whole) {}

  uint64_t Run() {
    if (layoutWas_.segments.size() != layoutIs_.segments.size())
      throw Error(name_, fmt::format("has {} segments, the input {}", layoutIs_.segments.size(),
                                     layoutWas_.segments.size()));
    uint64_t atWas = 0;
    uint64_t atIs = 0;
    for (segment_ = 0; segment_ < layoutWas_.segments.size(); ++segment_) {
      const Element& was = layoutWas_.segments[segment_].element;
      const Element& is = layoutIs_.segments[segment_].element;
      RequireBytes(atWas, was.at, atIs, is.at);  // heads
      RequireHead(was, is);
      cluster_ = 0;
      FindParts();
      CompareChildren(was, is);
      atWas = was.end;
      atIs = is.end;
    }
    RequireBytes(atWas, before_.size(), atIs, after_.size());
    return elements_;
  }

  const Layout& layoutWas() const { return layoutWas_; }
  const Layout& layoutIs() const { return layoutIs_; }

 private:
  [[noreturn]] void Fail(const Element& was, const char* what) const {
    throw Different(name_,
                    fmt::format("the element {} at byte {} of the input {}", IdName(was.id), was.at, what));
  }

  const Limits& limits() const { return layoutWas_.segments[segment_].limits; }
  const Limits& limitsIs() const { return layoutIs_.segments[segment_].limits; }

  void RequireHead(const Element& was, const Element& is) {
    ++elements_;
    if (was.id != is.id || was.open != is.open) Fail(was, "is not in its place");
    if (was.missing != is.missing) Fail(was, "does not count what the file lacks any more");
  }

  void RequireBytes(uint64_t atWas, uint64_t endWas, uint64_t atIs, uint64_t endIs) const {
    const auto fail = [&] {
      throw Different(name_, fmt::format("what stands at byte {} of the input is not as it was", atWas));
    };
    if (endWas - atWas != endIs - atIs) fail();
    Bytes a;
    Bytes b;
    while (atWas < endWas) {
      a.resize(static_cast<size_t>(std::min(endWas - atWas, kPiece)));
      b.resize(a.size());
      before_.Read(atWas, a);
      after_.Read(atIs, b);
      if (a != b) fail();
      atWas += a.size();
      atIs += a.size();
    }
  }

  // The same bytes, of long ones the number alone where not all is asked for.
  void RequireSame(const Element& was, const Element& is, uint64_t most = kLongBody) const {
    if (was.size() != is.size()) Fail(was, "has another size");
    if (whole_ || was.size() <= most) RequireBytes(was.at, was.end, is.at, is.end);
  }

  void CompareChildren(const Element& was, const Element& is) {
    uint64_t atWas = was.body;
    uint64_t atIs = is.body;
    while (atWas < was.end) {
      Element a = ReadElement(was_, atWas, was.end, limits());
      if (atIs >= is.end) Fail(a, "is missing");
      Element b = ReadElement(is_, atIs, is.end, limitsIs());
      RequireHead(a, b);
      if (was.id == id::kSegment && a.id == id::kCluster) FindEnds(a, b);
      Compare(was, a, is, b);
      atWas = a.end;
      atIs = b.end;
    }
    if (atIs != is.end) Fail(was, "holds more than it did");
  }

  // The segment's own parts beside clusters, as the input has them.
  void FindParts() {
    parts_.clear();
    const Segment& segment = layoutWas_.segments[segment_];
    size_t cluster = 0;
    for (uint64_t at = segment.element.body; at < segment.element.end;) {
      if (cluster < segment.clusters.size() && segment.clusters[cluster].at == at) {
        at = segment.clusters[cluster++].end;
        continue;
      }
      const Element child = ReadElement(was_, at, segment.element.end, limits());
      if (IsPart(child.id)) parts_.push_back(at);
      at = child.end;
    }
  }

  void FindEnds(Element& was, Element& is) {
    const std::vector<Cluster>& clusters = layoutIs_.segments[segment_].clusters;
    if (cluster_ >= clusters.size() || clusters[cluster_].at != is.at) Fail(was, "is not in its place");
    was.end = layoutWas_.segments[segment_].clusters[cluster_].end;
    is.end = clusters[cluster_++].end;
  }

  // What cannot be read is carried as long as nothing moves.
  void Compare(const Element& parentWas, const Element& was, const Element& parentIs, const Element& is) {
    try {
      CompareKnown(parentWas, was, parentIs, is);
    } catch (const Different&) {
      throw;
    } catch (const ReadError&) {
      throw;
    } catch (const Error&) {
      RequireSame(was, is, UINT64_MAX);
    }
  }

  void CompareKnown(const Element& parentWas, const Element& was, const Element& parentIs,
                    const Element& is) {
    const Role role = RoleOf(parentWas.id, was.id);
    const uint64_t parent = parentWas.id;
    if (was.id == id::kCrc) return CompareChecksum(parentWas, was, parentIs, is);
    if (role == Role::kPlace) return ComparePlace(was, is);
    if (role == Role::kRelativePlace) return;
    if (role == Role::kMaster) {
      CompareChildren(was, is);
      if (was.id == id::kCueTrackPositions) CompareRelative(was, is);
      return;
    }
    if (parent == id::kSegment &&
        (was.id == id::kCluster || was.id == id::kSeekHead || was.id == id::kCues || was.id == id::kTracks))
      return CompareChildren(was, is);
    if (parent == id::kTracks && was.id == id::kTrackEntry) return CompareEntry(was, is);
    if (parent == id::kBlockGroup && was.id == id::kBlock) return CompareBlock(was, is);
    if (parent == id::kCluster) {
      if (was.id == id::kBlockGroup) return CompareChildren(was, is);
      if (was.id == id::kSimpleBlock) return CompareBlock(was, is);
      if (was.id == id::kPrevSize) return ComparePrevSize(was, is);
      if (was.id == id::kPosition) return ComparePlace(was, is);
    }
    RequireSame(was, is);
  }

  // Of an entry, and the masters of pictures in it, all that no change names.
  void CompareEntry(const Element& was, const Element& is) {
    uint64_t number = 0;
    ForEachElement(was_, was.body, was.end, limits(), [&](const Element& child) {
      if (child.id == id::kTrackNumber) number = ReadUnsigned(was_, child);
    });
    if (changed_.count(number) == 0) return RequireSame(was, is, UINT64_MAX);
    CompareNamed(was, is);
  }

  void CompareNamed(const Element& was, const Element& is) {
    const auto others = [this](Reader& reader, const Element& of) {
      std::vector<Element> list;
      ForEachElement(reader, of.body, of.end, limits(), [&](const Element& child) {
        if (!IsNamed(child.id)) list.push_back(child);
      });
      return list;
    };
    const std::vector<Element> a = others(was_, was);
    const std::vector<Element> b = others(is_, is);
    size_t next = 0;
    for (const Element& child : b) {
      const bool there = next < a.size() && a[next].id == child.id;
      const bool master =
          child.id == (was.id == id::kTrackEntry ? id::kVideo : id::kColour) && was.id != id::kColour;
      if (!there && master) continue;  // came in
      if (!there) Fail(was, "holds more than it did");
      if (master) {
        CompareNamed(a[next++], child);
      } else {
        RequireSame(a[next], child, UINT64_MAX);
        ++next;
      }
    }
    if (next != a.size()) Fail(a[next], "is missing");
  }

  void CompareBlock(const Element& was, const Element& is) {
    Block a = ReadBlockHead(was_, was);
    if (changed_.count(a.track) == 0) return RequireSame(was, is, kHeadWindow);
    Block b = ReadBlockHead(is_, is);
    if (a.track != b.track || a.time != b.time || (a.flags & ~kLacing) != (b.flags & ~kLacing))
      Fail(was, "has another head");
    ReadFrames(was_, a);
    ReadFrames(is_, b);
    if (a.frames.size() != b.frames.size() || a.laced() != b.laced()) Fail(was, "has not as many frames");
  }

  void CompareChecksum(const Element& parentWas, const Element& was, const Element& parentIs,
                       const Element& is) {
    if (was.size() != is.size()) Fail(was, "has another size");
    const bool wide = parentWas.id == id::kCluster || parentWas.id == id::kSegment;
    if (was.size() != 4 || was.at != parentWas.body || (wide && !whole_)) return;
    const auto holds = [](Reader& reader, const Element& crc, uint64_t end) {
      const uint32_t value = ChecksumOf(reader.source(), crc.end, end);
      return __builtin_bswap32(reader.U32(crc.body)) == value;
    };
    if (holds(was_, was, parentWas.end) && !holds(is_, is, parentIs.end)) Fail(was, "does not hold any more");
  }

  // Of places in the segment those that name clusters, and the heads of other elements.
  void ComparePlace(const Element& was, const Element& is) {
    const uint64_t from = ReadUnsigned(was_, was);
    const uint64_t to = ReadUnsigned(is_, is);
    const Segment& a = layoutWas_.segments[segment_];
    const Segment& b = layoutIs_.segments[segment_];
    if (const std::optional<size_t> index = ClusterAt(a, from)) {
      if (b.clusters[*index].at != b.element.body + to) Fail(was, "does not name its cluster any more");
      return;
    }
    const uint64_t atWas = a.element.body + from;
    const uint64_t atIs = b.element.body + to;
    if (from > a.element.size() || to > b.element.size() || atWas >= a.element.end) {
      if (from > a.element.size() && from != to && from > before_.size() - a.element.body)
        Fail(was, "names another place");
      return;
    }
    // Other places than those of the segment's own parts may be among bytes that change.
    if (!std::binary_search(parts_.begin(), parts_.end(), atWas)) return;
    if (atIs >= b.element.end || b.element.end - atIs < kPartIdBytes ||
        was_.Number(atWas, kPartIdBytes) != is_.Number(atIs, kPartIdBytes))
      Fail(was, "does not name its element any more");
  }

  static std::optional<size_t> ClusterAt(const Segment& segment, uint64_t place) {
    if (place > segment.element.size()) return {};
    const uint64_t wanted = segment.element.body + place;
    const auto found = std::lower_bound(segment.clusters.begin(), segment.clusters.end(), wanted,
                                        [](const Cluster& cluster, uint64_t at) { return cluster.at < at; });
    if (found == segment.clusters.end() || found->at != wanted) return {};
    return static_cast<size_t>(found - segment.clusters.begin());
  }

  // The block that positions of a cue name; nothing where they name none, or cannot be read.
  static std::optional<Element> NamedBlock(Reader& reader, const Segment& segment, const Element& positions) {
    try {
      std::array<std::optional<uint64_t>, 2> said;
      ForEachElement(reader, positions.body, positions.end, segment.limits, [&](const Element& child) {
        if (child.id == id::kCueClusterPosition) said[0] = ReadUnsigned(reader, child);
        if (child.id == id::kCueRelativePosition) said[1] = ReadUnsigned(reader, child);
      });
      const std::optional<size_t> index = said[0] ? ClusterAt(segment, *said[0]) : std::nullopt;
      if (!index || !said[1]) return {};
      const Cluster& cluster = segment.clusters[*index];
      const Element head = ReadElement(reader, cluster.at, cluster.end, segment.limits);
      if (*said[1] >= cluster.end - head.body) return {};
      const std::optional<Element> block =
          FindElement(reader, head.body + *said[1], cluster.end, segment.limits);
      if (block && (block->id == id::kSimpleBlock || block->id == id::kBlockGroup)) return block;
    } catch (const ReadError&) {
      throw;
    } catch (const Error&) {
      // names no element
    }
    return {};
  }

  void CompareRelative(const Element& was, const Element& is) {
    const std::optional<Element> a = NamedBlock(was_, layoutWas_.segments[segment_], was);
    if (!a) return;
    const std::optional<Element> b = NamedBlock(is_, layoutIs_.segments[segment_], is);
    if (!b || a->id != b->id) Fail(was, "does not name its block any more");
    if (a->id != id::kSimpleBlock || a->size() < 4) return;
    const Block one = ReadBlockHead(was_, *a);
    const Block other = ReadBlockHead(is_, *b);
    if (one.track != other.track || one.time != other.time) Fail(was, "does not name its block any more");
  }

  void ComparePrevSize(const Element& was, const Element& is) {
    const auto holds = [this](const Segment& segment, uint64_t value) {
      // The cluster that is walked now has been counted.
      if (cluster_ < 2) return false;
      const Cluster& before = segment.clusters[cluster_ - 2];
      return before.end - before.at == value;
    };
    const uint64_t from = ReadUnsigned(was_, was);
    const uint64_t to = ReadUnsigned(is_, is);
    const bool right = holds(layoutWas_.segments[segment_], from);
    if (right ? !holds(layoutIs_.segments[segment_], to) : from != to)
      Fail(was, "does not say the size of the cluster in front");
  }

  const Source& before_;
  const Source& after_;
  Reader was_;
  Reader is_;
  Layout layoutWas_;
  Layout layoutIs_;
  const std::set<uint64_t>& changed_;
  const std::string& name_;
  bool whole_;
  size_t segment_ = 0;
  size_t cluster_ = 0;
  std::vector<uint64_t> parts_;  // of the segment, in their order
  uint64_t elements_ = 0;
};

uint64_t RequireFramesKept(const Source& before, const Layout& was, const Source& after, const Layout& is,
                           const std::set<uint64_t>& changed, const std::string& name,
                           const FrameKept& kept) {
  const auto wants = [&](uint64_t number) { return changed.count(number) != 0; };
  BlockCursor a(before, was, wants);
  BlockCursor b(after, is, wants);
  std::map<uint64_t, uint64_t> numbers;
  uint64_t frames = 0;
  BlockView old;
  BlockView fresh;
  while (a.Next(old)) {
    if (!b.Next(fresh)) throw Error(name, "has not as many blocks as the input");
    for (size_t i = 0; i < old.block.frames.size(); ++i, ++frames) {
      const mp4::Sample sample = SampleOf(old, i, numbers[old.block.track]++);
      const mp4::Sample other = SampleOf(fresh, i, sample.number);
      const auto same = [&] {
        if (sample.compositionTime != other.compositionTime || sample.sync != other.sync) return false;
        if (sample.encrypted) return true;
        return kept(old.block.track, sample, ReadFrame(before, old, i), ReadFrame(after, fresh, i));
      };
      if (!same())
        throw Error(name, fmt::format("frame {} of track {}: its coded data is not the input's",
                                      sample.number + 1, old.block.track));
    }
  }
  return frames;
}

}  // namespace

ElementsChecked RequireElementsKept(const Source& before, const Source& after,
                                    const std::set<uint64_t>& changed, const std::string& name,
                                    const FrameKept& frames) {
  Comparison comparison(before, after, changed, name, frames != nullptr);
  ElementsChecked checked;
  checked.elements = comparison.Run();
  if (frames)
    checked.frames = RequireFramesKept(before, comparison.layoutWas(), after, comparison.layoutIs(), changed,
                                       name, frames);
  return checked;
}

}  // namespace qlnmedia::mkv
