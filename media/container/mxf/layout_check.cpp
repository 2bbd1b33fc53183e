// Walks both files side by side.

#include "container/mxf/layout_check.h"

#include <fmt/format.h>

#include <set>

namespace qlnmedia::mxf {

namespace {

// The next triplet that is no fill item.
bool NextOf(KlvReader& reader, Klv& klv) {
  while (reader.Next(klv)) {
    if (klv.kind() != Kind::kFill) return true;
  }
  return false;
}

class Check {
 public:
  Check(const Source& source, const Layout& layout, const Source& output, const std::string& name)
      : source_(source),
        was_(layout),
        output_(output),
        is_(ReadLayout(output)),
        name_(name),
        old_(source, 64),
        new_(output, 64) {
    for (const PictureTrack& track : was_.tracks()) pictures_.insert(track.number);
  }

  void Run() {
    Triplets();
    Partitions();
    if (was_.randomIndex) RandomIndex();
    Index();
  }

 private:
  [[noreturn]] void Fail(const std::string& what, uint64_t at) const {
    throw Error(name_, fmt::format("{} (at byte {} of what was written)", what, at));
  }

  bool MayGrow(const Klv& klv) const {
    const Kind kind = klv.kind();
    return kind == Kind::kPrimer || kind == Kind::kSet ||
           (kind == Kind::kEssence && pictures_.count(klv.number()) != 0);
  }

  void Triplets() {
    KlvReader before(source_, was_.runIn);
    KlvReader after(output_, is_.runIn);
    Klv old, fresh;
    for (;;) {
      const bool more = NextOf(before, old);
      if (NextOf(after, fresh) != more) Fail("there are not as many triplets as in the input", after.at());
      if (!more) break;
      if (old.key != fresh.key) Fail("a triplet has another key than in the input", fresh.at);
      if (old.size != fresh.size && !MayGrow(old)) Fail("a triplet has another length", fresh.at);
    }
    if (before.cutAt().has_value() != after.cutAt().has_value())
      Fail("what is cut off at the end is not what it was", after.at());
  }

  // The partition that begins at an offset; its number, or that of none.
  static size_t PartitionOf(const Layout& layout, uint64_t offset) {
    const Partition* const found = layout.PartitionAt(layout.runIn + offset);
    if (found == nullptr || found->pack.at != layout.runIn + offset) return layout.partitions.size();
    return static_cast<size_t>(found - layout.partitions.data());
  }

  void Pointer(uint64_t was, uint64_t is, uint64_t at) const {
    const size_t partition = PartitionOf(was_, was);
    if (partition < was_.partitions.size() && PartitionOf(is_, is) != partition)
      Fail("an offset does not point to the partition that it pointed to", at);
  }

  // Where a run of so many bytes ends, seen as the triplet that stands there.
  bool EndsAtTriplet(Reader& reader, const Partition& partition, std::optional<uint64_t> begin,
                     uint64_t bytes) const {
    if (!begin || bytes > partition.end - *begin) return false;
    const uint64_t end = *begin + bytes;
    return end == partition.end || (end + 4 <= reader.size() && reader.U32(end) == 0x060E2B34);
  }

  void Partitions() {
    if (was_.partitions.size() != is_.partitions.size()) Fail("there are not as many partitions", 0);
    for (size_t i = 0; i < was_.partitions.size(); ++i) {
      const Partition& old = was_.partitions[i];
      const Partition& fresh = is_.partitions[i];
      const uint64_t at = fresh.pack.at;
      Pointer(old.thisPartition, fresh.thisPartition, at);
      Pointer(old.previous, fresh.previous, at);
      Pointer(old.footer, fresh.footer, at);
      const auto keeps = [&](std::optional<uint64_t> was, uint64_t wasBytes, std::optional<uint64_t> is,
                             uint64_t isBytes) {
        if (wasBytes != 0 && EndsAtTriplet(old_, old, was, wasBytes) &&
            !EndsAtTriplet(new_, fresh, is, isBytes))
          Fail("the header metadata or the index of a partition does not end where its pack says", at);
      };
      keeps(old.headerAt, old.headerBytes, fresh.headerAt, fresh.headerBytes);
      keeps(old.indexAt, old.indexBytes, fresh.indexAt, fresh.indexBytes);
      if (old.essenceAt && fresh.essenceAt && old.bodyOffset == old.streamAt &&
          fresh.bodyOffset != fresh.streamAt)
        Fail("the essence of a partition does not begin where its pack says", at);
    }
  }

  void RandomIndex() {
    const Klv& old = *was_.randomIndex;
    if (!is_.randomIndex) Fail("there is no random index pack", output_.size());
    for (uint64_t at = 0; at + 16 <= old.size; at += 12)
      Pointer(old_.U64(old.valueAt() + at + 4), new_.U64(is_.randomIndex->valueAt() + at + 4),
              is_.randomIndex->at);
  }

  void Index() {
    if (was_.index.size() != is_.index.size()) Fail("there are not as many index table segments", 0);
    for (size_t i = 0; i < was_.index.size(); ++i) {
      const IndexSegment& old = was_.index[i];
      const IndexSegment& fresh = is_.index[i];
      const uint32_t bodySid = was_.BodySidOf(old);
      for (uint64_t unit = 0; unit < old.entries; ++unit) {
        const auto was = Place(was_, old_, old, bodySid, unit);
        const auto is = Place(is_, new_, fresh, bodySid, unit);
        if (was && (!is || !SameTriplet(*was, *is)))
          Fail(fmt::format("entry {} of the index does not point to its edit unit", unit), fresh.klv.at);
      }
    }
  }

  static std::optional<uint64_t> Place(const Layout& layout, Reader& reader, const IndexSegment& segment,
                                       uint32_t bodySid, uint64_t unit) {
    const uint64_t at = segment.entriesAt + unit * segment.entryBytes + kStreamOffsetAt;
    return layout.PlaceOf(bodySid, reader.U64(at));
  }

  bool SameTriplet(uint64_t was, uint64_t is) {
    if (was + kKeyBytes > source_.size()) return true;
    if (is + kKeyBytes > output_.size()) return false;
    return old_.U64(was) == new_.U64(is) && old_.U64(was + 8) == new_.U64(is + 8);
  }

  const Source& source_;
  const Layout& was_;
  const Source& output_;
  Layout is_;
  const std::string& name_;
  Reader old_, new_;
  std::set<uint32_t> pictures_;
};

}  // namespace

void CheckLayout(const Source& source, const Layout& layout, const Source& output, const std::string& name) {
  Check(source, layout, output, name).Run();
}

}  // namespace qlnmedia::mxf
