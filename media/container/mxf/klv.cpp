// Keys told apart by their bytes, and lengths by the basic encoding rules.

#include "container/mxf/klv.h"

#include <algorithm>
#include <initializer_list>

namespace qlnmedia::mxf {

namespace {

constexpr size_t kVersionAt = 7;
constexpr uint64_t kMostRunIn = 65536;
constexpr uint8_t kLongForm = 0x80;
constexpr std::array<uint8_t, 4> kLabel = {0x06, 0x0E, 0x2B, 0x34};
// Picture, sound and data of SDTI content packages, then of the generic container, and compound (SMPTE ST
// 379-1).
constexpr std::initializer_list<uint8_t> kEssenceItems = {0x05, 0x06, 0x07, 0x15, 0x16, 0x17, 0x18};
constexpr std::initializer_list<uint8_t> kSystemItems = {0x04, 0x14};

bool IsIn(std::initializer_list<uint8_t> list, uint8_t value) {
  return std::find(list.begin(), list.end(), value) != list.end();
}

}  // namespace

bool BeginsWith(const Key& key, std::initializer_list<uint8_t> bytes) {
  size_t at = 0;
  for (const uint8_t byte : bytes) {
    if (at != kVersionAt && key[at] != byte) return false;
    ++at;
  }
  return true;
}

Kind KindOf(const Key& key) {
  if (BeginsWith(key, {0x06, 0x0E, 0x2B, 0x34, 0x01, 0x01, 0x01, 0, 0x03, 0x01, 0x02, 0x10, 0x01}))
    return Kind::kFill;
  if (BeginsWith(key, {0x06, 0x0E, 0x2B, 0x34, 0x01, 0x02, 0x01, 0, 0x0D, 0x01, 0x03, 0x01}))
    return IsIn(kEssenceItems, key[12]) ? Kind::kEssence : Kind::kOther;
  if (BeginsWith(key, {0x06, 0x0E, 0x2B, 0x34, 0x02, 0x04, 0x01, 0, 0x0D, 0x01, 0x03, 0x01, 0x02, 0x7E}))
    return Kind::kEncrypted;
  if (!BeginsWith(key, {0x06, 0x0E, 0x2B, 0x34, 0x02})) return Kind::kOther;
  const bool local = key[5] == 0x53;
  if (local && BeginsWith(key, {0x06, 0x0E, 0x2B, 0x34, 0x02, 0x53, 0x01, 0, 0x0D, 0x01, 0x01, 0x01}))
    return Kind::kSet;
  Key common = key;
  common[5] = 0;
  if (BeginsWith(common, {0x06, 0x0E, 0x2B, 0x34, 0x02, 0, 0x01, 0, 0x0D, 0x01, 0x03, 0x01}))
    return IsIn(kSystemItems, key[12]) ? Kind::kSystem : Kind::kOther;
  if (!BeginsWith(common, {0x06, 0x0E, 0x2B, 0x34, 0x02, 0, 0x01, 0, 0x0D, 0x01, 0x02, 0x01, 0x01}))
    return Kind::kOther;
  if (local) return key[13] == 0x10 ? Kind::kIndex : Kind::kOther;
  if (key[5] != 0x05) return Kind::kOther;
  if (key[13] >= 0x02 && key[13] <= 0x04) return Kind::kPartition;
  if (key[13] == 0x05) return Kind::kPrimer;
  return key[13] == 0x11 ? Kind::kRandomIndex : Kind::kOther;
}

size_t LengthFieldBytes(uint64_t size, size_t bytes) {
  const auto fits = [size](size_t field) {
    if (field == 1) return size < kLongForm;
    return field == 9 || size >> 8 * (field - 1) == 0;
  };
  if (fits(bytes)) return bytes;
  return bytes < 4 && fits(4) ? 4 : 9;
}

Bytes LengthField(uint64_t size, size_t bytes) {
  bytes = LengthFieldBytes(size, bytes);
  if (bytes == 1) return {static_cast<uint8_t>(size)};
  Bytes field = {static_cast<uint8_t>(kLongForm | (bytes - 1))};
  mp4::PutNumber(field, size, bytes - 1);
  return field;
}

KlvReader::KlvReader(const Source& source) : reader_(source) {
  const std::optional<uint64_t> begin = FindHeaderPartition(source);
  if (!begin) throw Error(source.name(), "has no header partition of MXF");
  at_ = *begin;
}

bool KlvReader::Next(Klv& klv) {
  const uint64_t size = reader_.size();
  if (at_ >= size || cutAt_) return false;
  const auto cut = [this] {
    cutAt_ = at_;
    return false;
  };
  if (size - at_ <= kKeyBytes) return cut();
  klv = {};
  klv.at = at_;
  for (size_t i = 0; i < kKeyBytes; ++i) klv.key[i] = reader_.U8(at_ + i);
  if (!std::equal(kLabel.begin(), kLabel.end(), klv.key.begin()))
    throw reader_.source().Fault(at_, "no key begins where one has to");
  const uint8_t first = reader_.U8(klv.lengthAt());
  klv.size = first;
  if (first >= kLongForm) {
    const size_t bytes = first - kLongForm;
    if (bytes == 0 || bytes > 8) throw reader_.source().Fault(klv.lengthAt(), "a length has no form of KLV");
    if (size - klv.lengthAt() <= bytes) return cut();
    klv.lengthBytes = static_cast<uint8_t>(1 + bytes);
    klv.size = reader_.Number(klv.lengthAt() + 1, bytes);
  }
  if (klv.size > size - klv.valueAt()) return cut();
  at_ = klv.end();
  return true;
}

std::optional<uint64_t> FindHeaderPartition(const Source& source) {
  Bytes window(static_cast<size_t>(std::min<uint64_t>(source.size(), kMostRunIn + kKeyBytes)));
  source.Read(0, window);
  for (size_t at = 0; at + kKeyBytes <= window.size(); ++at) {
    if (window[at] != kLabel[0] || window[at + 1] != kLabel[1]) continue;
    Key key{};
    std::copy_n(window.begin() + static_cast<std::ptrdiff_t>(at), kKeyBytes, key.begin());
    if (KindOf(key) == Kind::kPartition && key[13] == 0x02) return at;
  }
  return {};
}

}  // namespace qlnmedia::mxf
