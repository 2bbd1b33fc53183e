// Triplets of key, length and value (SMPTE ST 336), as MXF files are made of, and what their keys tell
// (SMPTE ST 377-1).
#ifndef MEDIA_CONTAINER_MXF_KLV_H
#define MEDIA_CONTAINER_MXF_KLV_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>

#include "container/mp4/source.h"

namespace qlnmedia::mxf {

using Bytes = mp4::Bytes;
using ByteSpan = mp4::ByteSpan;
using mp4::Reader;
using mp4::Source;

inline constexpr size_t kKeyBytes = 16;
using Key = std::array<uint8_t, kKeyBytes>;

enum class Kind {
  kPartition,
  kPrimer,
  kSet,  // of header metadata, known or not
  kFill,
  kIndex,
  kRandomIndex,
  kSystem,  // system item of a content package
  kEssence,
  kEncrypted,  // a triplet of SMPTE ST 429-6
  kOther,
};

// Whether a label begins with these bytes but for its version, the eighth.
bool BeginsWith(const Key& key, std::initializer_list<uint8_t> bytes);
Kind KindOf(const Key& key);

struct Klv {
  uint64_t at = 0;
  Key key{};
  uint8_t lengthBytes = 1;  // of the length field, 1 to 9
  uint64_t size = 0;        // of the value

  Kind kind() const { return KindOf(key); }
  uint64_t lengthAt() const { return at + kKeyBytes; }
  uint64_t valueAt() const { return lengthAt() + lengthBytes; }
  uint64_t end() const { return valueAt() + size; }
  uint64_t whole() const { return kKeyBytes + lengthBytes + size; }
  // The last four bytes of the key: which element of essence it is.
  uint32_t number() const { return static_cast<uint32_t>(mp4::LoadNumber(key.data() + 12, 4)); }
};

// A length in a field of the same number of bytes, or of as few more as it takes: 1, 4 or 9.
Bytes LengthField(uint64_t size, size_t bytes);
// Bytes of that field.
size_t LengthFieldBytes(uint64_t size, size_t bytes);

// Local tags that several sets have (ST 377-1 annexes).
inline constexpr uint16_t kIndexSid = 0x3F06, kBodySid = 0x3F07;
// An entry of a random index pack: BodySID and offset.
inline constexpr uint64_t kRandomIndexEntry = 12;

// The triplets of a file, one behind the other.
class KlvReader {
 public:
  // From the first partition on, in front of which other bytes may stand. Throws Error where there is none.
  explicit KlvReader(const Source& source);
  KlvReader(const Source& source, uint64_t at) : reader_(source), at_(at) {}

  // Where the next one begins.
  uint64_t at() const { return at_; }
  // False at the end of the file and where it ends within a triplet, which cutAt then tells. Throws Error
  // where no key begins or a length has no form.
  bool Next(Klv& klv);
  const std::optional<uint64_t>& cutAt() const { return cutAt_; }
  Reader& reader() { return reader_; }

 private:
  Reader reader_;
  uint64_t at_ = 0;
  std::optional<uint64_t> cutAt_;
};

// Where the header partition begins: the bytes of the run-in. Nothing where there is none.
std::optional<uint64_t> FindHeaderPartition(const Source& source);

}  // namespace qlnmedia::mxf

#endif
