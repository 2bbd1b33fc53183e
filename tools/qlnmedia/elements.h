// The syntax elements of a parsed record, by the library's table of names; only those that the stream holds.
#ifndef TOOLS_QLNMEDIA_ELEMENTS_H
#define TOOLS_QLNMEDIA_ELEMENTS_H

#include <cstring>
#include <span>
#include <vector>

#include "qlnmedia/report.h"
#include "qlnutil/bits/record_fields.h"

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

// "first element that differs: `name` 3, written back 4", or empty when two records of one kind are equal.
std::string FirstDifference(std::span<const qln::RecordField> fields, const void* before, const void* after);

}  // namespace qlnmedia

#endif
