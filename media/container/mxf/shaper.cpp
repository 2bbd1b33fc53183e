// Keeps the distance of every triplet from its partition's begin a multiple of the alignment where it was.

#include "container/mxf/shaper.h"

#include <utility>

namespace qlnmedia::mxf {

namespace {

constexpr size_t kUsualLengthBytes = 4;
constexpr Key kFillKey = {0x06, 0x0E, 0x2B, 0x34, 0x01, 0x01, 0x01, 0x02,
                          0x03, 0x01, 0x02, 0x10, 0x01, 0x00, 0x00, 0x00};

}  // namespace

uint64_t AlignedFrom(uint64_t least, int64_t wanted, uint64_t step) {
  const auto size = static_cast<int64_t>(step);
  const int64_t over = ((wanted - static_cast<int64_t>(least)) % size + size) % size;
  return least + static_cast<uint64_t>(over);
}

Bytes FillItem(uint64_t whole, size_t lengthBytes) {
  Bytes item(kFillKey.begin(), kFillKey.end());
  const size_t field = LengthFieldBytes(whole - kKeyBytes - lengthBytes, lengthBytes);
  const Bytes length = LengthField(whole - kKeyBytes - field, field);
  item.insert(item.end(), length.begin(), length.end());
  item.resize(static_cast<size_t>(whole));
  return item;
}

Shaper::Shaper(Carrier& carrier) : carrier_(carrier) {}

void Shaper::Run() {
  KlvReader triplets(carrier_.source_, carrier_.layout_.runIn);
  for (Klv klv; triplets.Next(klv);) Take(klv);
  if (fill_) TakeFill(*fill_, nullptr);
}

void Shaper::Take(const Klv& klv) {
  const Kind kind = klv.kind();
  if (fill_) {
    TakeFill(*fill_, &klv);
  } else if (kind != Kind::kFill) {
    Align(klv);
  }
  fill_.reset();
  if (kind == Kind::kPartition) {
    partition_ = carrier_.layout_.PartitionAt(klv.at);
    partitionShift_ = shift_;
  }
  if (kind == Kind::kFill) {
    fill_ = klv;
    return;
  }
  const int64_t before = shift_;
  TakeGrowth(klv);
  // Header metadata takes room from the fill behind all of it.
  owed_ = IsHeader(klv) ? owed_ + shift_ - before : 0;
  if (const auto found = carrier_.owed_.find(klv.end()); found != carrier_.owed_.end()) owed_ = found->second;
  last_ = klv;
}

bool Shaper::IsHeader(const Klv& klv) const {
  if (klv.kind() == Kind::kPrimer || klv.kind() == Kind::kSet) return true;
  return partition_ != nullptr && partition_->headerAt && klv.at > *partition_->headerAt &&
         klv.at - *partition_->headerAt < partition_->headerBytes && klv.kind() == Kind::kOther;
}

int64_t Shaper::GrowthOf(const Klv& klv) const {
  return carrier_.values_.GrowthIn(klv.valueAt(), klv.end()) +
         carrier_.tails_.GrowthIn(klv.valueAt(), klv.end());
}

void Shaper::TakeGrowth(const Klv& klv) {
  const int64_t growth = GrowthOf(klv);
  if (growth == 0) return;
  const auto size = static_cast<uint64_t>(static_cast<int64_t>(klv.size) + growth);
  const Bytes length = LengthField(size, klv.lengthBytes);
  carrier_.final_.Add(klv.lengthAt(), klv.lengthBytes, length);
  const int64_t wider = static_cast<int64_t>(length.size()) - klv.lengthBytes;
  if (wider != 0) carrier_.shape_.AddGrowth(klv.lengthAt(), wider);
  shift_ += growth + wider;
}

bool Shaper::WantsAlignment(const Klv& klv) const {
  return partition_ != nullptr && partition_->alignment > 1 &&
         (klv.at - partition_->pack.at) % partition_->alignment == 0;
}

void Shaper::TakeFill(const Klv& fill, const Klv* next) {
  const int64_t shift = shift_ - partitionShift_;
  const auto whole = static_cast<int64_t>(fill.whole());
  const int64_t owed = std::exchange(owed_, 0);
  const auto least = static_cast<int64_t>(kKeyBytes + fill.lengthBytes);
  last_ = fill;
  if (owed != 0 && whole - owed >= least) {
    Resize(fill, static_cast<uint64_t>(whole - owed));
    return;
  }
  if (next == nullptr || !WantsAlignment(*next) || shift % partition_->alignment == 0) return;
  // More than alignment asks for is room that somebody left.
  const bool spare = whole >= least + static_cast<int64_t>(partition_->alignment);
  if (spare && whole - shift >= least) {
    Resize(fill, static_cast<uint64_t>(whole - shift));
  } else {
    Resize(fill, AlignedFrom(static_cast<uint64_t>(least), whole - shift, partition_->alignment));
  }
}

// The bytes of a fill item stay as far as they go.
void Shaper::Resize(const Klv& fill, uint64_t whole) {
  const uint64_t was = fill.whole();
  const Bytes item = FillItem(whole, fill.lengthBytes);
  const uint8_t first = item[kKeyBytes];
  const size_t field = first < 0x80 ? 1 : first - 0x80u + 1;
  const uint64_t size = whole - kKeyBytes - field;
  const ByteSpan length = ByteSpan(item).subspan(kKeyBytes, field);
  const auto wider = static_cast<int64_t>(field) - fill.lengthBytes;
  const int64_t growth = static_cast<int64_t>(whole) - static_cast<int64_t>(was);
  if (fill.size == 0 || size == 0) {
    // Nothing of the value is kept.
    const auto value = ByteSpan(item).subspan(kKeyBytes);
    carrier_.final_.Add(fill.lengthAt(), static_cast<uint32_t>(fill.lengthBytes + fill.size), value);
  } else {
    carrier_.final_.Add(fill.lengthAt(), fill.lengthBytes, length);
    const int64_t more = growth - wider;
    if (more > 0) {
      Bytes tail = {Reader(carrier_.source_, 16).U8(fill.end() - 1)};
      tail.resize(static_cast<size_t>(1 + more));
      carrier_.final_.Add(fill.end() - 1, 1, tail);
    } else if (more < 0) {
      carrier_.final_.Add(fill.end() - static_cast<uint64_t>(-more), static_cast<uint32_t>(-more), {});
    }
  }
  carrier_.shape_.AddGrowth(fill.lengthAt(), growth);
  shift_ += growth;
}

// Without a fill item in front of it one comes in, but only for what always stands aligned.
void Shaper::Align(const Klv& next) {
  const int64_t shift = shift_ - partitionShift_;
  if (!last_ || !WantsAlignment(next) || shift % partition_->alignment == 0) return;
  const auto count = carrier_.layout_.keys.find(next.key);
  if (count == carrier_.layout_.keys.end() || count->second.aligned != count->second.all ||
      count->second.all < 2)
    return;
  const uint64_t whole = AlignedFrom(kKeyBytes + kUsualLengthBytes, -shift, partition_->alignment);
  carrier_.insertions_[next.at] = FillItem(whole, kUsualLengthBytes);
  carrier_.shape_.AddGrowth(next.at - 1, static_cast<int64_t>(whole));
  shift_ += static_cast<int64_t>(whole);
}

}  // namespace qlnmedia::mxf
