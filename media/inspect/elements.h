// The syntax elements of a parsed record, by the library's table of names; only those that the stream holds.
#ifndef MEDIA_INSPECT_ELEMENTS_H
#define MEDIA_INSPECT_ELEMENTS_H

#include <cstring>
#include <functional>
#include <optional>
#include <span>
#include <vector>

#include "base/report.h"
#include "qlnutil/bits/record_fields.h"
#include "units/units.h"

namespace qlnmedia {

// The word that an unread field of the second record holds.
inline constexpr uint32_t kUnreadWord = 0x5A5A5A5A;

// Lists the fields whose words are equal in two reads of the same unit, the first into zeroed words and the
// second into words of kUnreadWord: readers do not clear their record, so a word that differs was not in the
// stream. An array ends with its last word that was read; scaling lists come one by one.
std::vector<Element> PresentElements(std::span<const qln::RecordField> fields, const void* zeroed,
                                     const void* filled);

// A record whose words all hold kUnreadWord.
template <class Record>
Record FilledRecord() {
  static_assert(sizeof(Record) % 4 == 0);
  Record record;
  std::memset(&record, kUnreadWord & 0xFF, sizeof record);
  return record;
}

// Puts a note behind the element of that name, if it is there.
void NoteElement(std::vector<Element>& elements, std::string_view name, std::string note);
bool HasElement(const std::vector<Element>& elements, std::string_view name);

// The first element that differs between a set and what came back of it.
struct ElementChange {
  std::string name;  // with its index where it is one of an array; empty where no element holds the bit
  Json was;
  Json comesBack;  // null where it is gone
};

// Lists the elements of one unit as the library reads them.
using ElementLister = std::function<std::vector<Element>(const Bytes& unit)>;

// Names the element that holds the first bit in which two units differ, emulation prevention removed. Each of
// the two is read by `list`, and so is the first with that bit turned over: what reads otherwise then holds
// it. Nothing where the units differ in their emulation prevention alone.
std::optional<ElementChange> FirstChange(Codec codec, const Bytes& before, const Bytes& after,
                                         const ElementLister& list);

}  // namespace qlnmedia

#endif
