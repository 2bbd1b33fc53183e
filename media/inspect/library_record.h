// A parameter set as the library holds it: the words of its record by name, what it says while it reads, and
// the unit that it writes from the record.
#ifndef MEDIA_INSPECT_LIBRARY_RECORD_H
#define MEDIA_INSPECT_LIBRARY_RECORD_H

#include <string>
#include <vector>

#include "base/library_messages.h"
#include "base/report.h"
#include "qlnutil/qlnbits.h"
#include "units/units.h"

namespace qlnmedia {

struct LibraryRecord {
  bool known = false;              // the library has a record for sets of this type
  bool read = false;               // its reader took the unit
  std::vector<Element> elements;   // in the record's order; those that the reader filled in, arrays up to
                                   // their last word that it did, with null for others in front of that
  std::vector<std::string> names;  // of all elements that the record has a place for
  std::vector<LibraryMessage> said;
  Bytes written;  // empty where the library writes nothing
};

// A state of the library over bytes that stay: its readers take pointers to bytes that they never write.
QLNBitState StateOver(const Bytes& bytes);

// Reads a set with the library and writes it back. What others left in `messages` is dropped.
LibraryRecord ReadWithLibrary(Codec codec, const Bytes& unit, MessageSink& messages);

}  // namespace qlnmedia

#endif
