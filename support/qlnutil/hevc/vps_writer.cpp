// The VPS writer: a reduced VPS without HRD parameters and extension.

#include "qlnutil/hevc/parameter_set_writer.h"
#include "qlnutil/hevc/vps_syntax.h"

namespace qln {
namespace {

struct VpsWriter : HevcSetWriter {
  bool BaseLayerFlags() {
    U(2, 3);
    return true;
  }
  static bool AcceptsReserved(uint32_t /*word*/) { return true; }

  // Every layer is declared included, whatever the source had.
  void LayerIdIncludedFlags(const HevcVpsRecord& vps) {
    for (uint64_t i = 1; i <= vps.vps_num_layer_sets_minus1; ++i) {
      for (uint64_t j = 0; j <= vps.vps_max_layer_id; ++j) {
        Flag(1);
        if (Full()) return;
      }
    }
  }

  void UePlus1(uint32_t word) { Ue(word - 1u); }

  void HrdStructures(HevcVpsRecord& vps) {
    vps.vps_num_hrd_parameters = 0;
    Ue(vps.vps_num_hrd_parameters);
  }

  void Extension(HevcVpsRecord& vps) {
    vps.vps_extension_flag = 0;
    Flag(vps.vps_extension_flag);
  }
};

}  // namespace
}  // namespace qln

uint32_t qlnutilWrite_HEVC_VPS(HevcVpsRecord* vps, uint8_t* output) {
  using namespace qln;
  if (vps == nullptr || output == nullptr) return 0;
  HevcUnitWriter unit(kHevcNalVps);
  VpsWriter coder{{{unit.bits()}}};
  VpsSyntax(coder, *vps, nullptr);
  return unit.Finish(coder.bits, output);
}
