// Keeps splices packed, and sums of growth at every 64th of them.

#include "container/mp4/splices.h"

#include <array>
#include <cstring>

namespace qlnmedia::mp4 {

namespace {

constexpr size_t kStep = 64;
// What AddGrowth stands on: no bytes, and none removed.
constexpr uint64_t kNoContent = (uint64_t{1} << 48) - 1;

// Samples are long and differ in few places, so that most of them goes by in blocks.
constexpr size_t kBlock = 256;

size_t AlikeInFront(const uint8_t* a, const uint8_t* b, size_t most) {
  size_t alike = 0;
  while (most - alike >= kBlock && std::memcmp(a + alike, b + alike, kBlock) == 0) alike += kBlock;
  while (alike < most && a[alike] == b[alike]) ++alike;
  return alike;
}

// Of what ends at two places.
size_t AlikeBehind(const uint8_t* a, const uint8_t* b, size_t most) {
  size_t alike = 0;
  while (most - alike >= kBlock && std::memcmp(a - alike - kBlock, b - alike - kBlock, kBlock) == 0)
    alike += kBlock;
  while (alike < most && *(a - alike - 1) == *(b - alike - 1)) ++alike;
  return alike;
}

}  // namespace

void Splices::Put(uint64_t at, uint64_t spooled, int64_t growth) {
  if (at >> 48 != 0 || growth > INT32_MAX || growth < INT32_MIN) {
    throw Error("", "a change of " + std::to_string(growth) + " bytes at byte " + std::to_string(at) +
                        " is larger than can be carried");
  }
  entries_.push_back(
      {at << 16 | spooled >> 32, static_cast<uint32_t>(spooled), static_cast<int32_t>(growth)});
}

void Splices::Add(uint64_t at, uint32_t removed, ByteSpan fresh) {
  Open(at, removed);
  Append(fresh);
  Close();
}

void Splices::Open(uint64_t at, uint32_t removed) {
  openAt_ = at;
  openRemoved_ = removed;
  openSpooled_ = spool_->size();
  spool_->Append(NumberBytes(removed, 4));
}

void Splices::Append(ByteSpan fresh) { spool_->Append(fresh); }

void Splices::Close() {
  const uint64_t inserted = spool_->size() - openSpooled_ - 4;
  Put(openAt_, openSpooled_, static_cast<int64_t>(inserted) - openRemoved_);
}

bool Splices::AddDifference(uint64_t at, ByteSpan old, ByteSpan fresh) {
  const size_t shorter = std::min(old.size(), fresh.size());
  size_t front = AlikeInFront(old.data(), fresh.data(), shorter);
  if (front == old.size() && front == fresh.size()) return false;
  // What is added behind the last byte takes that byte with it.
  if (front == old.size()) --front;
  const size_t back =
      AlikeBehind(old.data() + old.size(), fresh.data() + fresh.size(), shorter - std::min(front, shorter));
  Add(at + front, static_cast<uint32_t>(old.size() - front - back),
      fresh.subspan(front, fresh.size() - front - back));
  return true;
}

void Splices::AddGrowth(uint64_t at, int64_t growth) { Put(at, kNoContent, growth); }

void Splices::Take(const Splices& other) {
  entries_.insert(entries_.end(), other.entries_.begin(), other.entries_.end());
}

void Splices::Seal(const Source& source) {
  std::sort(entries_.begin(), entries_.end(), [](const Entry& a, const Entry& b) { return a.at() < b.at(); });
  shifts_.clear();
  total_ = 0;
  for (size_t i = 0; i < entries_.size(); ++i) {
    if (i % kStep == 0) shifts_.push_back(total_);
    total_ += entries_[i].growth;
    const uint64_t end = entries_[i].at() + RemovedAt(entries_[i].spooled());
    const bool content = entries_[i].spooled() != kNoContent;
    if (content && i + 1 < entries_.size() &&
        (entries_[i + 1].at() < end || entries_[i + 1].at() == entries_[i].at())) {
      throw source.Fault(entries_[i + 1].at(),
                         "the same bytes would be changed twice: what is changed overlaps");
    }
    if (content && end > source.size())
      throw source.Fault(entries_[i].at(), "what is changed is outside the file");
  }
}

uint32_t Splices::RemovedAt(uint64_t spooled) const {
  if (spooled == kNoContent) return 0;
  std::array<uint8_t, 4> field{};
  spool_->Read(spooled, field);
  return static_cast<uint32_t>(LoadNumber(field.data(), 4));
}

Splices::Splice Splices::At(size_t index) const {
  const Entry& entry = entries_[index];
  Splice out;
  out.at = entry.at();
  out.removed = RemovedAt(entry.spooled());
  out.inserted = static_cast<uint32_t>(static_cast<int64_t>(out.removed) + entry.growth);
  out.spooled = entry.spooled() + 4;
  return out;
}

size_t Splices::FirstFrom(uint64_t at) const {
  const auto found = std::partition_point(entries_.begin(), entries_.end(),
                                          [at](const Entry& entry) { return entry.at() < at; });
  return static_cast<size_t>(found - entries_.begin());
}

size_t Splices::FirstReaching(uint64_t at) const {
  const size_t index = FirstFrom(at);
  if (index == 0) return 0;
  const Entry& last = entries_[index - 1];
  return RemovedAt(last.spooled()) > at - last.at() ? index - 1 : index;
}

int64_t Splices::ShiftAt(uint64_t at) const {
  const size_t index = FirstFrom(at);
  if (index == entries_.size()) return total_ + Held(index, at);
  int64_t shift = shifts_[index / kStep];
  for (size_t i = index - index % kStep; i < index; ++i) shift += entries_[i].growth;
  return shift + Held(index, at);
}

// What is cut short does not pull a place in the midst of it in front of its own begin.
int64_t Splices::Held(size_t index, uint64_t at) const {
  if (index == 0 || entries_[index - 1].growth >= 0) return 0;
  const Entry& last = entries_[index - 1];
  const uint64_t removed = RemovedAt(last.spooled());
  const uint64_t within = at - last.at();
  if (within >= removed) return 0;
  const auto left = static_cast<int64_t>(removed - within);
  return std::min(left, -int64_t{last.growth});
}

bool Splices::anyGrowth() const {
  return std::any_of(entries_.begin(), entries_.end(), [](const Entry& entry) { return entry.growth != 0; });
}

void Splices::WriteNew(const Splice& splice, Sink& sink) const {
  std::array<uint8_t, 1 << 16> buffer;  // NOLINT: filled before it is read
  for (uint64_t at = 0; at < splice.inserted;) {
    const size_t piece = static_cast<size_t>(std::min<uint64_t>(buffer.size(), splice.inserted - at));
    const std::span<uint8_t> part(buffer.data(), piece);
    spool_->Read(splice.spooled + at, part);
    sink.Write(part);
    at += piece;
  }
}

}  // namespace qlnmedia::mp4
