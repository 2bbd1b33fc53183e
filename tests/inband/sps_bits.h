// H.264 sequence parameter sets for the tests, written bit by bit from the standard's syntax table.
#ifndef TESTS_INBAND_SPS_BITS_H
#define TESTS_INBAND_SPS_BITS_H

#include "support/test_support.h"

namespace qln::test {

// A baseline SPS of 64x64 with a VUI.
struct AvcSps {
  bool vui = true;
  bool signalType = false;
  bool colourDescription = false;
  uint8_t primaries = 1, transfer = 1, matrix = 1;
  bool fullRange = false;
  uint8_t videoFormat = 5;
  bool nalHrd = false;
  bool vclHrd = false;
  bool picStructPresent = true;

  // The unit from its NAL header on, with emulation prevention where it is needed.
  Bytes Unit() const {
    BitBuilder bits;
    bits.u(8, 0x67).u(8, 66).u(8, 0xC0).u(8, 30);
    bits.ue(0);        // seq_parameter_set_id
    bits.ue(0).ue(2);  // log2_max_frame_num_minus4, pic_order_cnt_type
    bits.ue(1).u(1, 0).ue(3).ue(3).u(1, 1).u(1, 1).u(
        1, 0);  // references, size, frame_mbs_only, direct, cropping
    bits.u(1, vui ? 1 : 0);
    if (vui) WriteVui(bits);
    bits.trailing();
    Bytes out;
    int zeros = 0;
    for (const uint8_t byte : bits.bytes()) {
      if (zeros == 2 && byte <= 3) {
        out.push_back(3);
        zeros = 0;
      }
      out.push_back(byte);
      zeros = byte == 0 ? zeros + 1 : 0;
    }
    return out;
  }

 private:
  void WriteVui(BitBuilder& bits) const {
    bits.u(1, 0).u(1, 0);  // aspect ratio, overscan
    bits.u(1, signalType ? 1 : 0);
    if (signalType) {
      bits.u(3, videoFormat).u(1, fullRange ? 1 : 0).u(1, colourDescription ? 1 : 0);
      if (colourDescription) bits.u(8, primaries).u(8, transfer).u(8, matrix);
    }
    bits.u(1, 0);                             // chroma location
    bits.u(1, 1).u(32, 1).u(32, 50).u(1, 1);  // timing
    bits.u(1, nalHrd ? 1 : 0);
    if (nalHrd) WriteHrd(bits);
    bits.u(1, vclHrd ? 1 : 0);
    if (vclHrd) WriteHrd(bits);
    if (nalHrd || vclHrd) bits.u(1, 0);           // low_delay_hrd_flag
    bits.u(1, picStructPresent ? 1 : 0).u(1, 0);  // no bitstream restriction
  }
  static void WriteHrd(BitBuilder& bits) {
    bits.ue(0).u(4, 1).u(4, 1).ue(100).ue(100).u(1, 0).u(5, 23).u(5, 23).u(5, 23).u(5, 24);
  }
};

}  // namespace qln::test

#endif
