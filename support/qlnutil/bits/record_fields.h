// Names for the words of a parsed record, in the order of the record: what printers, tests and fuzz targets
// walk.
#ifndef QLNUTIL_BITS_RECORD_FIELDS_H
#define QLNUTIL_BITS_RECORD_FIELDS_H

#include <cstddef>
#include <cstdint>
#include <span>
#include <type_traits>

namespace qln {

// One field of a record of 32-bit words.
struct RecordField {
  const char* name;  // the syntax element as the published standard writes it
  uint32_t word;     // offset in the record, in words
  uint32_t count;    // words: 1, or the number of entries of an array in all its dimensions
  bool isSigned;     // two's complement, otherwise an unsigned code value
};

template <class Member>
consteval RecordField MakeRecordField(const char* name, size_t offset) {
  using Word = std::remove_all_extents_t<Member>;
  static_assert(sizeof(Word) == 4);
  return {name, static_cast<uint32_t>(offset / 4), static_cast<uint32_t>(sizeof(Member) / 4),
          std::is_signed_v<Word>};
}

// The entry of a table for one member.
#define QLN_RECORD_FIELD(record, member) \
  ::qln::MakeRecordField<decltype(record::member)>(#member, offsetof(record, member))

// True when the fields follow each other without a gap and end where the record ends: no member was
// forgotten.
consteval bool CoversRecord(std::span<const RecordField> fields, size_t recordSize) {
  uint32_t next = 0;
  for (const RecordField& field : fields) {
    if (field.word != next) return false;
    next += field.count;
  }
  return next * size_t{4} == recordSize;
}

}  // namespace qln

#endif
