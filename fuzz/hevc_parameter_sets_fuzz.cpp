// The three HEVC parameter set readers and writers on any bytes: reading into a record that holds anything,
// writing what was read, and writing records filled from the input.

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "fuzz_input.h"
#include "mutators/formats.h"
#include "qlnutil/qlnhevc.h"

namespace {

// The input as a record: repeated over its words, in runs that double.
template <class Record>
void Fill(Record& record, const uint8_t* data, size_t size) {
  auto* const bytes = reinterpret_cast<uint8_t*>(&record);
  size_t filled = std::min(size, sizeof record);
  std::memcpy(bytes, data, filled);
  while (filled != 0 && filled < sizeof record) {
    const size_t run = std::min(filled, sizeof record - filled);
    std::memcpy(bytes + filled, bytes, run);
    filled += run;
  }
}

// Records of their own blocks, kept from run to run: making them anew costs more than what is tried on them.
struct Records {
  std::unique_ptr<HevcVpsRecord> vps = std::make_unique<HevcVpsRecord>();
  std::unique_ptr<HevcSpsRecord> sps = std::make_unique<HevcSpsRecord>();
  std::unique_ptr<HevcPpsRecord> pps = std::make_unique<HevcPpsRecord>();
};

// Room that a writer is told to be given, and no byte more.
struct Output {
  std::unique_ptr<uint8_t[]> bytes{new uint8_t[QLN_HEVC_UNIT_SIZE]};
  void Check(uint32_t size) const {
    if (size > QLN_HEVC_UNIT_SIZE) std::abort();
  }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  qln::fuzz::DropMessages();
  if (size < 7) return 0;
  // Seven bytes steer, the rest is the unit.
  uint32_t length;
  std::memcpy(&length, data, 4);
  const uint8_t shape = data[4];
  const uint16_t bitPos = static_cast<uint16_t>(data[5] << 8 | data[6]);
  const size_t count = size - 7;
  const std::unique_ptr<uint8_t[]> unit(new uint8_t[count]);
  if (count != 0) std::memcpy(unit.get(), data + 7, count);

  static const Records records;
  const auto& [vps, sps, pps] = records;
  HevcConfigRecord config{};
  if (shape & 1) {
    Fill(*vps, data, size);
    Fill(*sps, data, size);
    Fill(*pps, data, size);
  } else {
    *vps = {};
    std::memset(sps.get(), 0, sizeof *sps);
    *pps = {};
  }
  const auto state = [&] {
    return QLNBitState{unit.get(), static_cast<int32_t>(count), static_cast<uint32_t>(count * 8),
                       shape & 2 ? bitPos : 0u};
  };
  const uint32_t bits = shape & 4 ? length : 0u;
  QLNBitState forVps = state();
  qlnutilRead_HEVC_VPS(&forVps, vps.get(), &config, bits);
  QLNBitState forSps = state();
  qlnutilRead_HEVC_SPS(&forSps, sps.get(), &config, bits);
  QLNBitState forPps = state();
  qlnutilRead_HEVC_PPS(&forPps, pps.get(), &config, bits);

  static const Output output;
  output.Check(qlnutilWrite_HEVC_VPS(vps.get(), output.bytes.get()));
  output.Check(qlnutilWrite_HEVC_SPS(sps.get(), output.bytes.get(), 0));
  output.Check(qlnutilWrite_HEVC_PPS(pps.get(), output.bytes.get()));
  return 0;
}

QLN_FUZZ_BY_PIECES(qln::fuzz::Codes(), 7)
