// The VPS reader: what it refuses, and what it passes without keeping it.

#include "qlnutil/hevc/hrd_parameters.h"
#include "qlnutil/hevc/nal_header.h"
#include "qlnutil/hevc/parameter_set_reader.h"
#include "qlnutil/hevc/parameter_sets.h"
#include "qlnutil/hevc/vps_syntax.h"

namespace qln {
namespace {

constexpr HevcReaderPolicy kVpsReader{
    kRemovalHevcVps, false,
    "\nqlnutilRead_HEVC_VPS failed bit length is wrong = %d padding = %d current bit %d bit length %d 0x%08X "
    "0x%08X",
    "\nqlnutilRead_HEVC_VPS failed allignment bit = %d padding = %d current bit %d bit length %d"};

struct VpsReader : HevcSetReader<BitReader&> {
  HevcUnit& unit;

  // vps_base_layer_internal_flag, vps_base_layer_available_flag: a base layer from outside is not supported.
  bool BaseLayerFlags() { return Accepts(bits.ReadBits(2) == 3); }
  bool AcceptsReserved(uint32_t word) { return Accepts(word == 65535); }

  void LayerIdIncludedFlags(const HevcVpsRecord& vps) {
    Pass(vps.vps_num_layer_sets_minus1 * (vps.vps_max_layer_id + 1));
  }

  void UePlus1(uint32_t& word) { word = bits.ReadUe() + 1; }

  // Kept out of line: most VPS have none of it.
  [[gnu::noinline]] void HrdStructures(HevcVpsRecord& vps) {
    Ue(vps.vps_num_hrd_parameters);
    const auto subLayers = static_cast<uint32_t>(LastSubLayer(vps.vps_max_sub_layers_minus1)) + 1;
    InLoop([&](HevcLoopCoder& loop) {
      // The first structure has a flag less than the others, so rounds are alike from the second on.
      RunRounds(loop.bits, vps.vps_num_hrd_parameters, 1, [&](uint64_t i) {
        vps.cprms_present_flag = 1;
        loop.Ue(vps.hrd_layer_set_idx);
        if (i > 0) loop.Flag(vps.cprms_present_flag);
        HevcReadHrdParameters(loop.bits, vps.cprms_present_flag, subLayers);
      });
    });
  }

  // Extension data is passed by whole bytes up to the length before unescaping; the stop bit is then looked
  // for behind it, so that every VPS with an extension is reported. A flag past the end has none; one that is
  // 1 stands in a whole byte of the length.
  void Extension(HevcVpsRecord& vps) {
    Flag(vps.vps_extension_flag);
    if (vps.vps_extension_flag != 1) return;
    bits.bitPos = (bits.bitPos + 7) & ~7u;
    Pass((unit.lengthBits() - bits.bitPos) / 8 * 8);
  }

 private:
  bool Accepts(bool right) {
    if (!right) unit.Report("Vps Reserved bits incorrect %s %d");
    return right;
  }
};

// False when the unit is refused.
bool ReadBody(HevcUnit& unit, HevcVpsRecord& vps, HevcConfigRecord* config) {
  if (unit.nalType() != kHevcNalVps) {
    unit.Report("Not a vps NAL %s %d");
    return false;
  }
  VpsReader coder{{{{unit.BehindHeader()}}}, unit};
  const bool accepted = VpsSyntax(coder, vps, config);
  unit.reports().reservedPairs = coder.reservedPairs;
  return accepted;
}

}  // namespace

HevcRead HevcReadVps(QLNBitState* state, HevcVpsRecord* vps, HevcConfigRecord* config, uint32_t lengthBits,
                     HevcReports& reports) {
  return ReadSetUnit(state, vps, lengthBits, kVpsReader, reports,
                     [&](HevcUnit& unit) { return ReadBody(unit, *vps, config); });
}

}  // namespace qln

uint64_t qlnutilRead_HEVC_VPS(QLNBitState* state, HevcVpsRecord* vps, HevcConfigRecord* config,
                              uint32_t lengthBits) {
  qln::HevcReports reports;
  const qln::HevcRead read = qln::HevcReadVps(state, vps, config, lengthBits, reports);
  reports.Give();
  return read.Exported();
}
