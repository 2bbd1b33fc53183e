// A stream's private data as containers keep it: the body of an avcC or hvcC box, or units with start codes.
// Walked by the tool itself, since the library's readers hand out records and keep no bytes.
#ifndef MEDIA_UNITS_CONFIG_RECORD_H
#define MEDIA_UNITS_CONFIG_RECORD_H

#include <string>
#include <vector>

#include "units/units.h"

namespace qlnmedia {

struct ConfigRecord {
  // The units of one list of the box: for avcC the SPS and then the PPS, for hvcC one array of a type.
  struct List {
    uint8_t head = 0;  // avcC: the bits above the count; hvcC: completeness bit and type
    std::vector<Bytes> units;
  };

  Codec codec = Codec::kH264;
  bool box = false;  // a box body; otherwise start codes, or nothing at all
  Framing framing;   // of the packets that belong to it
  Bytes head;        // what stands in front of the lists
  std::vector<List> lists;
  Bytes tail;              // what stands behind them
  UnitRun startCodeUnits;  // where it is no box
  std::string problem;     // why the box could not be walked to its end; empty if it could

  bool empty() const { return !box && startCodeUnits.units.empty(); }
  // Every unit, in order.
  std::vector<Bytes> units() const;
};

// Takes private data apart. Nothing is refused: `problem` says where a box breaks off, and the units in front
// of that place stand.
ConfigRecord ReadConfigRecord(Codec codec, ByteSpan data);

// Puts it together again; without changes the same bytes come out. Lists and units beyond what the counts of
// the box can hold are not written: callers never add any.
Bytes WriteConfigRecord(const ConfigRecord& record);

// The body of an avcC or hvcC box with the 8 bytes of size and type in front that the library reads.
Bytes WithBoxHeader(ByteSpan body, const char* type);

}  // namespace qlnmedia

#endif
