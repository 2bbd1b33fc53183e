// A table of registered identifiers.

#include "captions/anc_names.h"

namespace qlnmedia::captions {

namespace {

struct Registered {
  uint8_t did;
  int sdid;  // -1 for any
  const char* name;
};

constexpr Registered kRegistered[] = {
    {0x41, 0x01, "payload identification (ST 352)"},
    {0x41, 0x05, "active format and bar data (ST 2016-3)"},
    {0x41, 0x06, "pan-scan (ST 2016-4)"},
    {0x41, 0x07, "ANSI/SCTE 104 messages (ST 2010)"},
    {0x41, 0x08, "VBI data of DVB and SCTE (ST 2031)"},
    {0x41, 0x0C, "HDR and wide colour gamut metadata (ST 2108-1)"},
    {0x43, 0x02, "subtitling distribution packets (RDD 8)"},
    {0x43, 0x03, "VANC multipackets (RDD 8)"},
    {0x44, 0x04, "KLV metadata (RP 214)"},
    {0x44, 0x14, "KLV metadata (RP 214)"},
    {0x44, 0x44, "UMID and program identification (RP 223)"},
    {0x45, -1, "audio metadata (ST 2020)"},
    {0x51, 0x01, "film codes (RP 215)"},
    {0x60, 0x60, "ancillary timecode (ST 12-2)"},
    {0x60, 0x61, "ancillary timecode of high rates (ST 12-3)"},
    {0x61, 0x01, "captions (CDP, ST 334-1)"},
    {0x61, 0x02, "captions (line 21, ST 334-1)"},
    {0x62, 0x01, "program description (RP 207)"},
    {0x62, 0x02, "data broadcast (ST 334-1)"},
    {0x62, 0x03, "VBI data (RP 208)"},
    {0x64, 0x64, "LTC (RP 196)"},
    {0x64, 0x7F, "VITC (RP 196)"},
    {0x80, -1, "packets marked for deletion"},
    {0xF4, -1, "error detection (RP 165)"},
};

}  // namespace

std::string AncPacketName(uint8_t did, uint8_t sdid) {
  for (const Registered& known : kRegistered) {
    if (known.did == did && (known.sdid == -1 || known.sdid == sdid)) return known.name;
  }
  return {};
}

}  // namespace qlnmedia::captions
