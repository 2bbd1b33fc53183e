// Local sets of header metadata (SMPTE ST 377-1): properties by tags of two bytes, and the primer pack, which
// says what the tags mean.
#ifndef MEDIA_CONTAINER_MXF_LOCAL_SET_H
#define MEDIA_CONTAINER_MXF_LOCAL_SET_H

#include <optional>
#include <vector>

#include "container/mxf/klv.h"

namespace qlnmedia::mxf {

// Larger ones are carried without being looked at.
inline constexpr uint64_t kMostSetBytes = uint64_t{1} << 20;

struct Property {
  uint16_t tag = 0;
  Bytes value;
};

// The properties of a set's value in their order; nothing where their lengths are not those of the set.
std::optional<std::vector<Property>> ReadProperties(ByteSpan set);
Bytes WriteProperties(const std::vector<Property>& properties);
const Property* FindProperty(const std::vector<Property>& properties, uint16_t tag);

// A property's value as a number; nothing where it has not that many bytes.
std::optional<uint64_t> NumberOf(const std::vector<Property>& properties, uint16_t tag, size_t bytes);
std::optional<Key> LabelOf(const std::vector<Property>& properties, uint16_t tag);
// The entries of a batch or an array; none where its head is not true.
std::vector<ByteSpan> EntriesOf(ByteSpan batch, size_t entryBytes);

struct PrimerEntry {
  uint16_t tag = 0;
  Key label{};
};

// Nothing where a value is none of a primer pack.
std::optional<std::vector<PrimerEntry>> ReadPrimer(ByteSpan value);
Bytes WritePrimer(const std::vector<PrimerEntry>& entries);
// The tag of a property by its label, whatever the label's version; nothing where the primer has none.
std::optional<uint16_t> TagOf(const std::vector<PrimerEntry>& primer, const Key& label);

}  // namespace qlnmedia::mxf

#endif
