// The interlace rewrite of any frame, with any SPS on the host's side, into a destination of any capacity.

#include "fuzz_input.h"
#include "qlnutil/qlninband.h"

// Head: flags, second field offset, capacity, and the words of the host's SPS that steer the rewrite; then
// the frame.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  qln::fuzz::DropMessages();
  qln::fuzz::Input input(data, size);
  const uint32_t flags = input.Number(1);
  const uint32_t secondFieldOffset = input.Number(2);
  const uint32_t capacity = input.Number(2) + 1;

  const std::unique_ptr<HevcSpsRecord> host(new HevcSpsRecord());
  host->frame_field_info_present_flag = flags & 1;
  host->nal_hrd_parameters_present_flag = flags >> 1 & 1;
  host->sub_pic_hrd_params_present_flag = flags >> 2 & 1;
  host->sub_pic_cpb_params_in_pic_timing_sei_flag = flags >> 3 & 1;
  host->transfer_characteristics = (flags >> 4 & 1) != 0 ? 16 : flags;
  // Widths as an SPS may hold them, and others.
  host->au_cpb_removal_delay_length_minus1 = static_cast<uint32_t>(static_cast<int8_t>(input.Number(1)));
  host->dpb_output_delay_length_minus1 = static_cast<uint32_t>(static_cast<int8_t>(input.Number(1)));
  host->dpb_output_delay_du_length_minus1 = input.Number(1);
  host->du_cpb_removal_delay_increment_length_minus1 = input.Number(1);
  host->vui_time_scale = input.Number(1);
  host->vui_num_units_in_tick = input.Number(1);

  const size_t bytes = input.left();
  qln::fuzz::Block from(input.data(), bytes, bytes);
  qln::fuzz::Block to(nullptr, 0, capacity);
  DFrame source = {};
  source.frameData = from.data();
  source.frameSize = static_cast<uint32_t>(bytes);
  source.fieldFlags = (flags >> 5 & 1) != 0 ? QLN_TWO_FIELDS : 0;
  source.secondFieldOffset = secondFieldOffset;
  DFrame destination = {};
  destination.frameType = (flags >> 6 & 1) != 0 ? 0x10000000u : 0;
  destination.frameData = to.data();
  destination.frameCapacity = capacity;
  qlnutilSetFrameInterlaced(&source, &destination, host.get(), 0);
  if (destination.frameSize > capacity) __builtin_trap();
  return 0;
}
