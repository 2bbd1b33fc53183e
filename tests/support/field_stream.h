// H.264 streams of coded fields, bit by bit: no encoder at hand makes any. Every macroblock is I_PCM, so that
// each picture stands for itself and may be coded in any order; frames and pairs of fields mix as wanted.
//
//   MakeFieldStream({{.place = 0, .idr = true}, {.place = 2}, {.place = 1, .reference = false}})
//
// is three frames, each coded as two fields, the third shown between the other two. ffmpeg decodes them. To
// put one into a container, with both fields of a frame in a packet or each in its own, see MuxFields in
// tests/qlnmedia/media.
#ifndef TESTS_SUPPORT_FIELD_STREAM_H
#define TESTS_SUPPORT_FIELD_STREAM_H

#include <vector>

#include "support/test_support.h"

namespace qln::test {

// One frame, in coding order.
struct CodedFrame {
  int place = 0;       // in presentation order, counted from the last IDR picture
  bool idr = false;    // its second field is then a non-IDR one, as the standard asks
  bool fields = true;  // two coded fields; false for one coded frame
  bool bottomFirst = false;
  bool reference = true;  // an IDR picture always is
};

struct FieldStreamOptions {
  int pocType = 0;  // pic_order_cnt_type: 0, 1 or 2; 2 knows presentation order only
  uint32_t numUnitsInTick = 1;
  uint32_t timeScale = 50;     // 25 frames a second; 0 for a stream without timing
  bool pictureTiming = false;  // pic_struct_present_flag, and a message per picture with no clock in it
  bool delimiters = false;     // an access unit delimiter in front of every field and frame
};

// Width and height of the frames, in luma samples.
inline constexpr int kFieldStreamSize = 64;

// The coded pictures with start codes, one a frame or field, parameter sets in front of IDR pictures. The
// luma of a frame is 32 + 4 * (its index in coding order % 48), that of its second field 2 more.
std::vector<Bytes> MakeFieldPictures(const std::vector<CodedFrame>& frames,
                                     const FieldStreamOptions& options = {});

// The same as one byte stream.
Bytes MakeFieldStream(const std::vector<CodedFrame>& frames, const FieldStreamOptions& options = {});

}  // namespace qln::test

#endif
