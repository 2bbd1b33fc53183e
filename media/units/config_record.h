// A stream's private data as containers keep it: the body of an avcC or hvcC box, or units with start codes.
// Walked by the tool itself, since the library's readers hand out records and keep no bytes.
#ifndef MEDIA_UNITS_CONFIG_RECORD_H
#define MEDIA_UNITS_CONFIG_RECORD_H

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "units/units.h"

namespace qlnmedia {

// The fields in front of an avcC's lists (ISO/IEC 14496-15 clause 5.3.3.1), by their published names.
struct AvccHead {
  static constexpr size_t kBytes = 5;
  uint8_t configurationVersion = 1;
  uint8_t AVCProfileIndication = 0;
  uint8_t profile_compatibility = 0;
  uint8_t AVCLevelIndication = 0;
  uint8_t lengthSizeMinusOne = 3;
};

// The fields in front of an hvcC's lists (ISO/IEC 14496-15 clause 8.3.3.1), by their published names.
struct HvccHead {
  static constexpr size_t kBytes = 22;
  uint8_t configurationVersion = 1;
  uint8_t general_profile_space = 0;
  uint8_t general_tier_flag = 0;
  uint8_t general_profile_idc = 0;
  uint32_t general_profile_compatibility_flags = 0;
  uint64_t general_constraint_indicator_flags = 0;  // 48 bits
  uint8_t general_level_idc = 0;
  uint16_t min_spatial_segmentation_idc = 0;
  uint8_t parallelismType = 0;
  uint8_t chromaFormat = 0;
  uint8_t bitDepthLumaMinus8 = 0;
  uint8_t bitDepthChromaMinus8 = 0;
  uint16_t avgFrameRate = 0;
  uint8_t constantFrameRate = 0;
  uint8_t numTemporalLayers = 0;
  uint8_t temporalIdNested = 0;
  uint8_t lengthSizeMinusOne = 3;
};

// Nothing for fewer bytes than a head has.
std::optional<AvccHead> ReadAvccHead(ByteSpan body);
std::optional<HvccHead> ReadHvccHead(ByteSpan body);

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
  // The head's fields; nothing for another kind of private data, and for a head that breaks off.
  std::optional<AvccHead> avccHead() const;
  std::optional<HvccHead> hvccHead() const;
  // Every unit, in order.
  std::vector<Bytes> units() const;
};

// Calls `take` for each unit of private data in order, without a copy: spans point into `data`. Units in
// front of the place where a box breaks off are handed over.
void VisitConfigUnits(Codec codec, ByteSpan data, const std::function<void(ByteSpan unit)>& take);

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
