// The PPS reader, and what it gives to a configuration record.

#include "qlnutil/hevc/nal_header.h"
#include "qlnutil/hevc/parameter_set_reader.h"
#include "qlnutil/hevc/parameter_sets.h"
#include "qlnutil/hevc/pps_syntax.h"

namespace qln {
namespace {

constexpr HevcReaderPolicy kPpsReader{
    kRemovalHevcSpsPps, false,
    "\nqlnutilRead_HEVC_PPS failed bit length is wrong = %d padding = %d current bit %d bit length %d 0x%08X "
    "0x%08X",
    "\nqlnutilRead_HEVC_PPS failed allignment bit = %d padding = %d current bit %d bit length %d"};

// False when the unit is refused.
bool ReadBody(HevcUnit& unit, HevcPpsRecord& pps) {
  if (unit.nalType() != kHevcNalPps) {
    unit.Report("Not a pps NAL (%d) %s %d", unit.nalType());
    return false;
  }
  HevcSetReader<BitWindow> coder{{{BitWindow(unit.BehindHeader())}}};
  PpsSyntax(coder, pps);
  unit.bits() = coder.bits.reader();
  return true;
}

// parallelismType of ISO/IEC 14496-15: 0 mixed or unknown, 1 slices, 2 tiles, 3 wavefronts.
uint32_t ParallelismType(const HevcPpsRecord& pps) {
  const bool wavefronts = pps.entropy_coding_sync_enabled_flag != 0;
  const bool tiles = pps.tiles_enabled_flag != 0;
  if (wavefronts) return tiles ? 0 : 3;
  return tiles ? 2 : 1;
}

}  // namespace

HevcRead HevcReadPps(QLNBitState* state, HevcPpsRecord* pps, HevcConfigRecord* config, uint32_t lengthBits,
                     HevcReports& reports) {
  const HevcRead read = ReadSetUnit(state, pps, lengthBits, kPpsReader, reports,
                                    [&](HevcUnit& unit) { return ReadBody(unit, *pps); });
  if (read.end == HevcRead::End::kRead && config != nullptr) config->parallelismType = ParallelismType(*pps);
  return read;
}

}  // namespace qln

uint64_t qlnutilRead_HEVC_PPS(QLNBitState* state, HevcPpsRecord* pps, HevcConfigRecord* config,
                              uint32_t lengthBits) {
  qln::HevcReports reports;
  const qln::HevcRead read = qln::HevcReadPps(state, pps, config, lengthBits, reports);
  reports.Give();
  return read.Exported();
}
