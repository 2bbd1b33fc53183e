// Tells pictures apart, pairs fields, and has each placed.

#include "pictures/picture_tracker.h"

#include <algorithm>

#include "pictures/slice_pictures.h"
#include "units/access_unit.h"

namespace qlnmedia {

namespace {

constexpr size_t kNone = SIZE_MAX;
constexpr int kHevcEndOfSequence = 36;

bool IsHevcIrap(int type) { return type >= 16 && type <= 23; }

}  // namespace

bool AreOfTwoPictures(const SliceHead& last, const SliceHead& head) {
  const bool idr = head.unitType == 5;
  return head.frameNum != last.frameNum || head.ppsId != last.ppsId || head.field != last.field ||
         head.bottom != last.bottom || (head.refIdc == 0) != (last.refIdc == 0) ||
         idr != (last.unitType == 5) || (idr && head.idrPicId != last.idrPicId) ||
         head.pocLsb != last.pocLsb || head.deltaPocBottom != last.deltaPocBottom ||
         head.deltaPoc != last.deltaPoc;
}

void PictureTracker::TakeSet(ByteSpan unit) {
  slices_.TakeSet(unit);
  if (codec_ == Codec::kH264 && IsSps(codec_, UnitType(codec_, unit)) && unit.size() > 1)
    anyOrder_ = unit[1] == 66 || unit[1] == 88;
}

bool PictureTracker::BeginsPicture(const std::optional<SliceHead>& last, const std::optional<SliceHead>& head,
                                   ByteSpan slice) const {
  if (codec_ == Codec::kHevc) return IsBaseLayer(codec_, slice) && IsFirstSlice(codec_, slice);
  if (last && head) return AreOfTwoPictures(*last, *head);
  // Without its sets a slice only tells where its macroblocks begin; data partitions do not even that.
  const int type = UnitType(codec_, slice);
  return !anyOrder_ && type != 3 && type != 4 && IsFirstSlice(codec_, slice);
}

// Complementary field pairs (ITU-T H.264 clause 3.30): opposite parity, the same frame_num, both of them
// references or neither; an IDR picture is a first field.
bool PictureTracker::CompletesFrame(const SliceHead& head) const {
  return firstField_ && head.field && head.bottom != firstField_->bottom &&
         head.frameNum == firstField_->frameNum && (head.refIdc == 0) == (firstField_->refIdc == 0) &&
         head.unitType != 5;
}

void PictureTracker::Place(CodedPicture& picture, const SliceHead& head) {
  picture.secondField = CompletesFrame(head);
  picture.order = counter_.Next(head, picture.secondField);
  picture.head = head;
  firstField_.reset();
  if (head.field && !picture.secondField) firstField_ = head;
}

std::vector<CodedPicture> PictureTracker::Take(const std::vector<Unit>& units) {
  std::vector<CodedPicture> pictures;
  size_t begin = kNone;  // of an access unit whose slice has not come yet
  std::optional<SliceHead> last;
  for (size_t i = 0; i < units.size(); ++i) {
    const ByteSpan unit = units[i].bytes;
    const int type = UnitType(codec_, unit);
    TakeSet(unit);
    if (codec_ == Codec::kHevc && type == kHevcEndOfSequence) counter_.EndSequence();
    if (!IsSlice(codec_, type)) {
      if (begin == kNone && BeginsAccessUnit(codec_, type)) begin = i;
      continue;
    }
    if (!IsBaseLayer(codec_, unit)) {
      if (!pictures.empty()) begin = kNone;
      continue;
    }
    const std::optional<SliceHead> head = slices_.Read(unit);
    if (pictures.empty() || BeginsPicture(last, head, unit)) {
      if (begin == kNone) begin = i;
      if (!pictures.empty()) pictures.back().end = begin;
      CodedPicture picture;
      picture.begin = begin;
      picture.slice = i;
      picture.end = units.size();
      pictures.push_back(std::move(picture));
    }
    if (head && !pictures.back().head) Place(pictures.back(), *head);
    if (head) last = head;
    begin = kNone;  // units between the slices of a picture begin nothing
  }
  return pictures;
}

unsigned PictureTracker::KindOf(ByteSpan slice) const {
  const std::optional<uint32_t> type = slices_.ReadType(slice);
  if (!type) return 0;
  static constexpr unsigned kH264[] = {kSliceP, kSliceB, kSliceI, kSliceSwitching, kSliceSwitching};
  static constexpr unsigned kHevc[] = {kSliceB, kSliceP, kSliceI};
  return codec_ == Codec::kH264 ? kH264[*type % 5] : kHevc[*type];
}

unsigned PictureTracker::SlicesOf(const std::vector<Unit>& units, const CodedPicture& picture) const {
  if (codec_ == Codec::kHevc) {
    if (IsHevcIrap(UnitType(codec_, units[picture.slice].bytes))) return kSliceI;
    // The types of later segments stand behind an address of a length that takes more sets to know.
    const auto segments =
        std::count_if(units.begin() + static_cast<std::ptrdiff_t>(picture.slice),
                      units.begin() + static_cast<std::ptrdiff_t>(picture.end), [&](const Unit& unit) {
                        return IsSlice(codec_, UnitType(codec_, unit.bytes)) && unit.bytes.size() >= 2 &&
                               IsBaseLayer(codec_, unit.bytes);
                      });
    return segments == 1 ? KindOf(units[picture.slice].bytes) : kSliceI | kSliceP | kSliceB;
  }
  unsigned kinds = 0;
  for (size_t i = picture.slice; i < picture.end; ++i) {
    const int type = UnitType(codec_, units[i].bytes);
    if (type != 1 && type != 2 && type != 5) continue;
    const unsigned kind = KindOf(units[i].bytes);
    if (kind == 0) return 0;
    kinds |= kind;
  }
  return kinds;
}

const CodedPicture* FirstPlaced(const std::vector<CodedPicture>& pictures) {
  const auto found = std::find_if(pictures.begin(), pictures.end(),
                                  [](const CodedPicture& picture) { return picture.head.has_value(); });
  return found == pictures.end() ? nullptr : &*found;
}

uint8_t TemporalPlus1(ByteSpan slice) {
  const uint8_t value = slice.size() > 1 ? slice[1] & 7 : 1;
  return value == 0 ? 1 : value;
}

}  // namespace qlnmedia
