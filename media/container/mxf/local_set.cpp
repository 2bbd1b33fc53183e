// Takes sets apart and puts them together again.

#include "container/mxf/local_set.h"

#include <algorithm>

namespace qlnmedia::mxf {

namespace {

constexpr size_t kHeadBytes = 4;  // tag and length of a property; count of a batch
constexpr size_t kBatchHead = 8;
constexpr size_t kPrimerEntryBytes = 2 + kKeyBytes;

}  // namespace

std::optional<std::vector<Property>> ReadProperties(ByteSpan set) {
  std::vector<Property> properties;
  while (!set.empty()) {
    if (set.size() < kHeadBytes) return {};
    const auto size = static_cast<size_t>(mp4::LoadNumber(set.data() + 2, 2));
    if (size > set.size() - kHeadBytes) return {};
    const ByteSpan value = set.subspan(kHeadBytes, size);
    properties.push_back(
        {static_cast<uint16_t>(mp4::LoadNumber(set.data(), 2)), Bytes(value.begin(), value.end())});
    set = set.subspan(kHeadBytes + size);
  }
  return properties;
}

Bytes WriteProperties(const std::vector<Property>& properties) {
  Bytes set;
  for (const Property& property : properties) {
    mp4::PutNumber(set, property.tag, 2);
    mp4::PutNumber(set, property.value.size(), 2);
    set.insert(set.end(), property.value.begin(), property.value.end());
  }
  return set;
}

const Property* FindProperty(const std::vector<Property>& properties, uint16_t tag) {
  const auto found = std::find_if(properties.begin(), properties.end(),
                                  [tag](const Property& property) { return property.tag == tag; });
  return found == properties.end() ? nullptr : &*found;
}

std::optional<uint64_t> NumberOf(const std::vector<Property>& properties, uint16_t tag, size_t bytes) {
  const Property* const property = FindProperty(properties, tag);
  if (property == nullptr || property->value.size() != bytes) return {};
  return mp4::LoadNumber(property->value.data(), bytes);
}

std::optional<Key> LabelOf(const std::vector<Property>& properties, uint16_t tag) {
  const Property* const property = FindProperty(properties, tag);
  if (property == nullptr || property->value.size() != kKeyBytes) return {};
  Key label{};
  std::copy(property->value.begin(), property->value.end(), label.begin());
  return label;
}

std::vector<ByteSpan> EntriesOf(ByteSpan batch, size_t entryBytes) {
  std::vector<ByteSpan> entries;
  if (batch.size() < kBatchHead || mp4::LoadNumber(batch.data() + 4, 4) != entryBytes) return entries;
  const uint64_t count = mp4::LoadNumber(batch.data(), 4);
  if (count > (batch.size() - kBatchHead) / entryBytes) return entries;
  for (size_t i = 0; i < count; ++i)
    entries.push_back(batch.subspan(kBatchHead + i * entryBytes, entryBytes));
  return entries;
}

std::optional<std::vector<PrimerEntry>> ReadPrimer(ByteSpan value) {
  const std::vector<ByteSpan> entries = EntriesOf(value, kPrimerEntryBytes);
  if (value.size() != kBatchHead + entries.size() * kPrimerEntryBytes) return {};
  std::vector<PrimerEntry> primer;
  for (const ByteSpan entry : entries) {
    PrimerEntry& read = primer.emplace_back();
    read.tag = static_cast<uint16_t>(mp4::LoadNumber(entry.data(), 2));
    std::copy_n(entry.begin() + 2, kKeyBytes, read.label.begin());
  }
  return primer;
}

Bytes WritePrimer(const std::vector<PrimerEntry>& entries) {
  Bytes value;
  mp4::PutNumber(value, entries.size(), 4);
  mp4::PutNumber(value, kPrimerEntryBytes, 4);
  for (const PrimerEntry& entry : entries) {
    mp4::PutNumber(value, entry.tag, 2);
    value.insert(value.end(), entry.label.begin(), entry.label.end());
  }
  return value;
}

std::optional<uint16_t> TagOf(const std::vector<PrimerEntry>& primer, const Key& label) {
  for (const PrimerEntry& entry : primer) {
    Key same = entry.label;
    same[7] = label[7];
    if (same == label) return entry.tag;
  }
  return {};
}

}  // namespace qlnmedia::mxf
