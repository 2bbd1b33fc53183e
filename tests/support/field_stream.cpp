// Writes the syntax of ITU-T H.264 clause 7.3, one element after the other.

#include "support/field_stream.h"

namespace qln::test {

namespace {

constexpr int kMbWidth = kFieldStreamSize / 16;
constexpr int kMbHeight = kFieldStreamSize / 16;
constexpr int kLog2MaxFrameNum = 4;
constexpr int kLog2MaxPocLsb = 6;

// nal_unit() of clause 7.3.1 with a start code of four bytes.
void AppendUnit(Bytes& stream, int header, const Bytes& payload) {
  for (const int byte : {0, 0, 0, 1, header}) stream.push_back(static_cast<uint8_t>(byte));
  int zeros = 0;
  for (const uint8_t byte : payload) {
    if (zeros >= 2 && byte <= 3) {
      stream.push_back(3);
      zeros = 0;
    }
    zeros = byte == 0 ? zeros + 1 : 0;
    stream.push_back(byte);
  }
}

Bytes SequenceParameterSet(const FieldStreamOptions& options) {
  BitBuilder b;
  b.u(8, 77).u(8, 0).u(8, 30);  // Main profile, level 3
  b.ue(0);                      // seq_parameter_set_id
  b.ue(kLog2MaxFrameNum - 4);
  b.ue(static_cast<uint32_t>(options.pocType));
  if (options.pocType == 0) {
    b.ue(kLog2MaxPocLsb - 4);
  } else if (options.pocType == 1) {
    b.u(1, 0);       // delta_pic_order_always_zero_flag
    b.se(-2).se(1);  // offset_for_non_ref_pic, offset_for_top_to_bottom_field
    b.ue(1).se(2);   // one offset in the cycle
  }
  b.ue(4).u(1, 0);  // max_num_ref_frames, gaps_in_frame_num_value_allowed_flag
  b.ue(kMbWidth - 1).ue(kMbHeight / 2 - 1);
  b.u(1, 0).u(1, 0).u(1, 1);  // frame_mbs_only_flag, mb_adaptive_frame_field_flag, direct_8x8_inference_flag
  b.u(1, 0).u(1, 1);          // frame_cropping_flag, vui_parameters_present_flag
  b.u(1, 0).u(1, 0).u(1, 0).u(1, 0);  // aspect ratio, overscan, signal type, chroma location
  b.u(1, options.timeScale != 0 ? 1 : 0);
  if (options.timeScale != 0) b.u(32, options.numUnitsInTick).u(32, options.timeScale).u(1, 1);
  b.u(1, 0).u(1, 0);  // no HRD
  b.u(1, options.pictureTiming ? 1 : 0);
  b.u(1, 1).u(1, 1).ue(0).ue(0).ue(10).ue(10);  // bitstream restriction
  b.ue(options.pocType == 2 ? 0 : 2).ue(4);     // max_num_reorder_frames, max_dec_frame_buffering
  return b.trailing().bytes();
}

Bytes PictureParameterSet() {
  BitBuilder b;
  b.ue(0).ue(0);              // ids
  b.u(1, 0).u(1, 1);          // CAVLC, bottom_field_pic_order_in_frame_present_flag
  b.ue(0).ue(0).ue(0);        // one slice group, reference index counts
  b.u(1, 0).u(2, 0);          // no weights
  b.se(0).se(0).se(0);        // quantisers
  b.u(1, 1).u(1, 0).u(1, 0);  // deblocking_filter_control_present_flag, others
  return b.trailing().bytes();
}

enum class Structure { kFrame, kTop, kBottom };

struct Picture {
  const CodedFrame& frame;
  Structure structure = Structure::kFrame;
  bool second = false;  // field of its frame
  uint32_t frameNum = 0;
  int frameNumOffset = 0;  // of types 1 and 2: what the decoder adds to frame_num
  uint32_t idrId = 0;
  uint8_t luma = 0;
  bool idr() const { return frame.idr && !second; }
  bool reference() const { return frame.idr || frame.reference; }
  // Picture order counts: the first field of a frame is even.
  int topCount() const { return 2 * frame.place + (frame.bottomFirst ? 1 : 0); }
  int bottomCount() const { return 2 * frame.place + (frame.bottomFirst ? 0 : 1); }
};

// What delta_pic_order_cnt[0] must add to what type 1 expects (equations 8-6 to 8-10 with the offsets above).
int Type1Delta(const Picture& picture) {
  int absolute = picture.frameNumOffset + static_cast<int>(picture.frameNum);
  if (!picture.reference() && absolute > 0) --absolute;
  const int expected = 2 * absolute + (picture.reference() ? 0 : -2);
  // A bottom field is expected one behind the top field.
  return picture.structure == Structure::kBottom ? picture.bottomCount() - (expected + 1)
                                                 : picture.topCount() - expected;
}

Bytes MakePicture(const Picture& picture, const FieldStreamOptions& options) {
  const bool frame = picture.structure == Structure::kFrame;
  const bool bottom = picture.structure == Structure::kBottom;
  const int between = picture.bottomCount() - picture.topCount();
  Bytes stream;
  BitBuilder b;
  b.ue(0).ue(7).ue(0);  // first_mb_in_slice, an I slice, pic_parameter_set_id
  b.u(kLog2MaxFrameNum, picture.frameNum);
  b.u(1, frame ? 0 : 1);
  if (!frame) b.u(1, bottom ? 1 : 0);
  if (picture.idr()) b.ue(picture.idrId);
  if (options.pocType == 0) {
    const int poc = bottom ? picture.bottomCount() : picture.topCount();
    b.u(kLog2MaxPocLsb, static_cast<uint64_t>(poc) & ((1u << kLog2MaxPocLsb) - 1));
    if (frame) b.se(between);
  } else if (options.pocType == 1) {
    b.se(Type1Delta(picture));
    if (frame) b.se(between - 1);
  }
  if (picture.idr()) {
    b.u(2, 0);  // dec_ref_pic_marking
  } else if (picture.reference()) {
    b.u(1, 0);
  }
  b.se(0).ue(1);  // slice_qp_delta, no deblocking
  for (int mb = 0; mb < kMbWidth * kMbHeight / (frame ? 1 : 2); ++mb) {
    b.ue(25).align();  // I_PCM
    for (int i = 0; i < 256; ++i) b.u(8, picture.luma);
    for (int i = 0; i < 128; ++i) b.u(8, 128);
  }
  if (options.delimiters) AppendUnit(stream, 9, BitBuilder().u(3, 0).trailing().bytes());
  if (picture.idr()) {
    AppendUnit(stream, 0x67, SequenceParameterSet(options));
    AppendUnit(stream, 0x68, PictureParameterSet());
  }
  if (options.pictureTiming) {
    // pic_struct by table D-1, and a clear clock_timestamp_flag for each of its clocks.
    const int picStruct = frame ? (picture.frame.bottomFirst ? 4 : 3) : bottom ? 2 : 1;
    const Bytes message =
        BitBuilder().u(4, static_cast<uint64_t>(picStruct)).u(frame ? 2 : 1, 0).trailing().bytes();
    AppendUnit(stream, 6, Join({{1, 1}, message, {0x80}}));
  }
  AppendUnit(stream, (picture.reference() ? 0x60 : 0) | (picture.idr() ? 5 : 1), b.trailing().bytes());
  return stream;
}

}  // namespace

std::vector<Bytes> MakeFieldPictures(const std::vector<CodedFrame>& frames,
                                     const FieldStreamOptions& options) {
  std::vector<Bytes> pictures;
  uint32_t references = 0;  // since the last IDR picture: frame_num counts them
  uint32_t idrId = 0;
  for (size_t i = 0; i < frames.size(); ++i) {
    const CodedFrame& frame = frames[i];
    if (frame.idr) {
      references = 0;
      ++idrId;
    }
    Picture picture{.frame = frame};
    picture.frameNum = references % (1u << kLog2MaxFrameNum);
    picture.frameNumOffset = static_cast<int>(references - picture.frameNum);
    picture.idrId = idrId % 2;
    picture.luma = static_cast<uint8_t>(32 + 4 * (i % 48));
    if (frame.fields) {
      picture.structure = frame.bottomFirst ? Structure::kBottom : Structure::kTop;
      pictures.push_back(MakePicture(picture, options));
      picture.second = true;
      picture.luma = static_cast<uint8_t>(picture.luma + 2);
      picture.structure = frame.bottomFirst ? Structure::kTop : Structure::kBottom;
    }
    pictures.push_back(MakePicture(picture, options));
    if (picture.reference()) ++references;
  }
  return pictures;
}

Bytes MakeFieldStream(const std::vector<CodedFrame>& frames, const FieldStreamOptions& options) {
  Bytes stream;
  for (const Bytes& picture : MakeFieldPictures(frames, options)) stream = Join({stream, picture});
  return stream;
}

}  // namespace qln::test
