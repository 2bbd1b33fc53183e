// Gathers changes as splices, settles the growth of everything, and then what names places.

#include "container/mxf/carrier.h"

#include <fmt/format.h>

#include <algorithm>

#include "container/mxf/constant_size.h"
#include "container/mxf/place_edit.h"
#include "container/mxf/shaper.h"

namespace qlnmedia::mxf {

namespace {

// Intra classes of AVC that fix the bytes of a picture (SMPTE RP 2027): Hi10Intra and Hi422Intra with a
// class in the low half of the last byte but one.
bool IsAvcIntraClass(const std::optional<Key>& coding) {
  return coding &&
         BeginsWith(*coding,
                    {0x06, 0x0E, 0x2B, 0x34, 0x04, 0x01, 0x01, 0, 0x04, 0x01, 0x02, 0x02, 0x01, 0x32}) &&
         ((*coding)[14] == 0x21 || (*coding)[14] == 0x31);
}

}  // namespace

Carrier::Carrier(const Source& source, const std::string& scratch)
    : source_(source),
      layout_(ReadLayout(source)),
      spool_(scratch),
      values_(spool_),
      tails_(spool_),
      shape_(spool_),
      final_(spool_) {
  if (layout_.encryptedAt)
    throw source.Fault(*layout_.encryptedAt, "its essence is encrypted (SMPTE ST 429-6)");
  tracks_ = layout_.tracks();
  for (const PictureTrack& track : tracks_) constant_.push_back(IsConstant(track));
}

bool Carrier::IsConstant(const PictureTrack& track) const {
  for (const IndexSegment& segment : layout_.index) {
    if (segment.unitBytes != 0 && segment.entries == 0 && layout_.BodySidOf(segment) == track.bodySid)
      return true;
  }
  const auto count = layout_.elements.find({track.bodySid, track.number});
  return count != layout_.elements.end() && count->second.constant && IsAvcIntraClass(track.coding);
}

// Of bytes that reach the end of their triplet.
void Carrier::PutChange(uint64_t at, ByteSpan was, ByteSpan is) {
  if (was.empty() || is.empty()) throw source_.Fault(at, "an element that is empty cannot change");
  // What stands at the end waits until it is known what comes behind it.
  if (is.size() > was.size() && std::equal(was.begin(), was.end(), is.begin())) {
    tails_.Add(at + was.size() - 1, 1, is.subspan(was.size() - 1));
    return;
  }
  const bool tail = was.back() != is.back() || is.size() < was.size();
  (tail ? tails_ : values_).AddDifference(at, was, is);
}

void Carrier::ReplaceParts(const Klv& klv, std::span<const PicturePart> parts) {
  for (size_t i = 0; i < parts.size(); ++i) {
    const PicturePart& part = parts[i];
    if (std::equal(part.was.begin(), part.was.end(), part.is.begin(), part.is.end())) continue;
    const uint64_t at = klv.valueAt() + part.at;
    if (i + 1 == parts.size()) {
      PutChange(at, part.was, part.is);
    } else {
      values_.AddDifference(at, part.was, part.is);
    }
  }
}

void Carrier::Replace(const Picture& picture, ByteSpan is, std::optional<Codec> codec) {
  const ByteSpan was(picture.bytes);
  if (std::equal(was.begin(), was.end(), is.begin(), is.end())) return;
  if (!constant_[picture.track]) {
    PutChange(picture.klv.valueAt(), was, is);
    return;
  }
  const Bytes fitted = FitToSize(Bytes(is.begin(), is.end()), was.size(), codec);
  if (fitted.size() > was.size()) {
    const uint64_t more = fitted.size() - was.size();
    KlvReader behind(source_, picture.klv.end());
    Klv fill;
    const bool room = behind.Next(fill) && fill.kind() == Kind::kFill && fill.size >= more;
    const bool wider = LengthFieldBytes(fitted.size(), picture.klv.lengthBytes) != picture.klv.lengthBytes;
    if (!room || wider) {
      const uint64_t taken = !room && fill.kind() == Kind::kFill ? fill.size : 0;
      throw source_.Fault(picture.klv.at,
                          fmt::format("picture {} has to stay {} bytes long, and {} bytes are missing",
                                      picture.number, was.size(), more - taken));
    }
    owed_[picture.klv.end()] = static_cast<int64_t>(more);
  }
  PutChange(picture.klv.valueAt(), was, fitted);
}

void Carrier::Prepare(const FactsByTrack& facts) {
  for (const MetadataCopy& copy : layout_.metadata) {
    for (const ValueChange& change : ChangeDescriptors(source_, copy, facts))
      PutChange(change.klv.valueAt(), Reader(source_).Run(change.klv.valueAt(), change.klv.size),
                change.value);
  }
  values_.Seal(source_);
  tails_.Seal(source_);
  final_.Take(values_);
  for (const mp4::Splices* const list : {&values_, &tails_}) {
    for (size_t i = 0; i < list->size(); ++i) {
      const mp4::Splices::Splice splice = list->At(i);
      const int64_t growth = int64_t{splice.inserted} - int64_t{splice.removed};
      if (growth != 0) shape_.AddGrowth(splice.at, growth);
    }
  }
  Shaper(*this).Run();
  shape_.Seal(source_);
  WriteTails();
  PlaceEdit(*this).Run();
  WriteInsertions();
  final_.Seal(source_);
}

void Carrier::WriteTails() {
  for (size_t i = 0; i < tails_.size(); ++i) {
    const mp4::Splices::Splice splice = tails_.At(i);
    Bytes is(splice.inserted);
    tails_.ReadNew(splice, 0, is);
    if (const auto found = insertions_.find(splice.at + splice.removed); found != insertions_.end()) {
      is.insert(is.end(), found->second.begin(), found->second.end());
      insertions_.erase(found);
    }
    final_.Add(splice.at, splice.removed, is);
  }
}

void Carrier::WriteInsertions() {
  for (const auto& [at, item] : insertions_) {
    Bytes is = Reader(source_, 16).Run(at - 1, 1);
    is.insert(is.end(), item.begin(), item.end());
    final_.Add(at - 1, 1, is);
  }
  insertions_.clear();
}

void Carrier::Write(mp4::Sink& sink, const std::function<void(uint64_t)>& wrote) const {
  final_.Apply(source_, 0, source_.size(), sink, [&wrote](uint64_t done) {
    if (wrote) wrote(done);
  });
}

}  // namespace qlnmedia::mxf
