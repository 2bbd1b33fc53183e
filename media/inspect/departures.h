// What the library makes of a parameter set, held against the published syntax: the elements that its record
// holds otherwise, and the first that changes when it writes the set back.
#ifndef MEDIA_INSPECT_DEPARTURES_H
#define MEDIA_INSPECT_DEPARTURES_H

#include <optional>
#include <string>
#include <vector>

#include "base/report.h"
#include "inspect/library_record.h"
#include "sets/set_elements.h"

namespace qlnmedia {

// A set by the published syntax.
struct PublishedSet {
  PublishedSet(Codec codec, const Bytes& unit, const ChromaFormats& formats);
  Codec codec;
  const Bytes& unit;
  Bytes payload;  // the unit without its emulation prevention
  SetElements set;
  std::vector<Element> elements;
};

// One element that the library's record holds otherwise than the stream does.
struct Departure {
  std::string element;
  Json as;      // in the record; null where it holds none, though it has a place for it
  Json stream;  // null where the stream has none
  // The record keeps one of several values on purpose, which says nothing of those behind it.
  bool oneOfSeveral = false;
};

// In the stream's order.
std::vector<Departure> DeparturesOf(const PublishedSet& published, const LibraryRecord& record);

// The first element that changes when a set is read and written back.
struct FirstChange {
  std::string element;  // empty where the change is behind all elements, or in the emulation prevention alone
  Json was;
  Json comesBack;  // null where it is gone
  std::string why;
  bool escapes = false;  // nothing but the emulation prevention changes
};

// Nothing where the library wrote the same bytes, or none.
std::optional<FirstChange> FirstChangeOf(const PublishedSet& published, const LibraryRecord& record,
                                         const std::vector<Departure>& departures,
                                         const ChromaFormats& formats);

}  // namespace qlnmedia

#endif
