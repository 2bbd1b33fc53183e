// Colour codes into a frame's first SPS: read into a record, change the words, write it back in place.

#include <algorithm>
#include <cstring>

#include "qlnutil/bits/bit_writer.h"
#include "qlnutil/h264/frame_conversion.h"
#include "qlnutil/h264/parameter_sets.h"
#include "qlnutil/hevc/nal_header.h"
#include "qlnutil/hevc/parameter_sets.h"
#include "qlnutil/inband/codec_form.h"
#include "qlnutil/inband/marker_copy.h"
#include "qlnutil/inband/unit_walk.h"
#include "qlnutil/qlnh264.h"
#include "qlnutil/qlnhevc.h"
#include "qlnutil/qlninband.h"

namespace qln {
namespace {

constexpr uint32_t kLongestSps = 8192;
constexpr uint32_t kAnyColour = QLN_COLOR_MATRIX | QLN_COLOR_TRANSFER | QLN_COLOR_PRIMARIES;
constexpr uint32_t kUnspecified = 2;
constexpr uint8_t kAvcSps = 7;

template <class Record>
void SetColour(const DFrame& frame, Record* sps, uint32_t Record::*matrix) {
  if (sps->vui_parameters_present_flag == 0 || sps->video_signal_type_present_flag == 0 ||
      sps->colour_description_present_flag == 0) {
    sps->colour_primaries = kUnspecified;
    sps->transfer_characteristics = kUnspecified;
    sps->*matrix = kUnspecified;
  }
  sps->video_full_range_flag = frame.videoFullRange & 1u;
  sps->vui_parameters_present_flag = 1;
  sps->video_signal_type_present_flag = 1;
  sps->colour_description_present_flag = 1;
  if ((frame.colorFlags & QLN_COLOR_PRIMARIES) != 0) sps->colour_primaries = frame.colourPrimaries;
  if ((frame.colorFlags & QLN_COLOR_TRANSFER) != 0)
    sps->transfer_characteristics = frame.transferCharacteristics;
  if ((frame.colorFlags & QLN_COLOR_MATRIX) != 0) sps->*matrix = frame.matrixCoefficients;
}

// Each writes the changed SPS of `unit` to `output` (room for kLongestSps bytes) and returns its length, 0
// for none.
uint64_t RewriteAvcSps(const DFrame& frame, QLNBitState* unit, uint8_t* output) {
  H264SpsRecord sps = {};
  if (qlnutilRead_SPS(unit, &sps) == 0) return 0;
  SetColour(frame, &sps, &H264SpsRecord::matrix_coefficients);
  BitWriter writer(output, kLongestSps);
  return WriteSps(sps, 2 * kLongestSps, writer) ? writer.BytePos() : 0;
}

uint64_t RewriteHevcSps(const DFrame& frame, QLNBitState* unit, uint8_t* output) {
  HevcSpsRecord sps = {};
  // A refusal is not 0: what was read up to there is written. Without memory nothing was read.
  HevcReports reports;
  const HevcRead read = HevcReadSps(unit, &sps, nullptr, unit->bitLength, reports);
  reports.Give();
  if (read.end == HevcRead::End::kNoMemory) return 0;
  SetColour(frame, &sps, &HevcSpsRecord::matrix_coeffs);
  return qlnutilWrite_HEVC_SPS(&sps, output, kLongestSps);
}

// Goes on to the first SPS; false if there is none.
bool FindSps(UnitWalk* walk, CodecForm form) {
  while (walk->Next()) {
    const uint8_t header = *walk->unit();
    if (form == CodecForm::kHevc ? HevcUnitType(header) == kHevcNalSps : (header & 0x1F) == kAvcSps)
      return true;
  }
  return false;
}

// Replaces the first SPS of `frame`, which is in marker form. False with the frame as it was where that is
// not possible.
bool ReplaceSps(DFrame* frame, CodecForm form) {
  UnitWalk walk(frame->frameData, frame->frameSize, kSmallestFrame);
  if (!FindSps(&walk, form)) return false;
  uint8_t* const unit = frame->frameData + (walk.unit() - frame->frameData);
  const uint32_t size = walk.size();
  if (size > INT32_MAX / 8) return false;
  QLNBitState state{unit, static_cast<int32_t>(size), size * 8, 0};
  uint8_t output[kLongestSps] = {};
  const uint64_t newSize = form == CodecForm::kHevc ? RewriteHevcSps(*frame, &state, output)
                                                    : RewriteAvcSps(*frame, &state, output);
  if (newSize == 0) return false;
  const uint64_t newFrameSize = uint64_t{frame->frameSize} - size + newSize;
  if (newSize > size && newFrameSize > frame->frameCapacity) return false;
  uint8_t* const behind = unit + size;
  std::memmove(unit + newSize, behind, static_cast<size_t>(frame->frameData + frame->frameSize - behind));
  std::memcpy(unit, output, newSize);
  frame->frameSize = static_cast<uint32_t>(newFrameSize);
  return true;
}

}  // namespace
}  // namespace qln

uint32_t qlnutilWriteColorimetryToSPS(DFrame* frame, uint32_t fourcc) {
  using namespace qln;
  if (frame == nullptr || frame->frameData == nullptr || frame->frameSize < kSmallestFrame ||
      (frame->colorFlags & kAnyColour) == 0) {
    return 0;
  }
  const CodecForm form = CodecFormOf(fourcc, true);
  if (form == CodecForm::kNone) return 0;
  if (BeginsWithStartCode(frame->frameData, frame->frameSize)) return ReplaceSps(frame, form) ? 1 : 0;

  MarkerCopy copy(*frame, kLongestSps);
  if (!copy.ok()) return 0;
  DFrame edited = *frame;
  edited.frameData = copy.data();
  edited.frameSize = copy.convertedSize();
  const bool replaced = ReplaceSps(&edited, form);
  return copy.PutBack(frame, edited.frameSize) && replaced ? 1 : 0;
}
