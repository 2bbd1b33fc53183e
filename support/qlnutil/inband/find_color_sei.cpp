// HDR metadata out of frames: every SEI unit of a private copy is unescaped and its messages walked.

#include <cstring>

#include "qlnutil/bits/bit_reader.h"
#include "qlnutil/bits/emulation_prevention.h"
#include "qlnutil/bits/private_copy.h"
#include "qlnutil/h264/frame_conversion.h"
#include "qlnutil/hevc/nal_header.h"
#include "qlnutil/inband/codec_form.h"
#include "qlnutil/inband/mastering_display.h"
#include "qlnutil/inband/unit_walk.h"
#include "qlnutil/qlnh264.h"
#include "qlnutil/qlninband.h"

namespace qln {
namespace {

constexpr uint8_t kTrailingByte = 0x80;
constexpr uint8_t kAvcSei = 6;

// Bytes of an SEI unit's NAL header, 0 for another unit. The codec is not known: HEVC is looked for first,
// and H.264 units that look like it hold no message that matches.
uint32_t SeiHeaderBytes(const uint8_t* unit, uint32_t size) {
  const uint32_t type = HevcUnitType(unit[0]);
  if (size >= 2 && (type == kHevcNalPrefixSei || type == kHevcNalSuffixSei)) return 2;
  return (unit[0] & 0x1F) == kAvcSei ? 1 : 0;
}

void ReadMasteringDisplay(const uint8_t* payload, MasteringDisplayRecord* record) {
  BitReader reader(payload, kMasteringDisplayBytes, kMasteringDisplayBytes * 8);
  record->greenX = reader.ReadBits(16);
  record->greenY = reader.ReadBits(16);
  record->blueX = reader.ReadBits(16);
  record->blueY = reader.ReadBits(16);
  record->redX = reader.ReadBits(16);
  record->redY = reader.ReadBits(16);
  record->whitePointX = reader.ReadBits(16);
  record->whitePointY = reader.ReadBits(16);
  record->maxLuminance = reader.ReadBits(32);
  record->minLuminance = reader.ReadBits(32);
  record->primariesValid = 1;
  record->luminanceValid = 1;
}

void ReadContentLight(const uint8_t* payload, ContentLightRecord* record) {
  BitReader reader(payload, kContentLightBytes, kContentLightBytes * 8);
  record->max_content_light_level = reader.ReadBits(16);
  record->max_pic_average_light_level = reader.ReadBits(16);
}

// Reads the number form of payload type and size at `*i`. False where the bytes end first.
bool ReadCoded(const uint8_t* bytes, uint64_t size, uint64_t* i, uint64_t* value) {
  *value = 0;
  while (*i < size && bytes[*i] == 255) {
    *value += 255;
    ++*i;
  }
  if (*i >= size) return false;
  *value += bytes[(*i)++];
  return true;
}

// Walks the messages of an unescaped unit behind its header. Returns how many were read into a record.
uint32_t ReadMessages(const uint8_t* bytes, uint64_t size, ContentLightRecord* light,
                      MasteringDisplayRecord* display) {
  uint32_t found = 0;
  uint64_t i = 0;
  while (i < size && bytes[i] != kTrailingByte) {
    uint64_t type;
    uint64_t payloadSize;
    if (!ReadCoded(bytes, size, &i, &type) || !ReadCoded(bytes, size, &i, &payloadSize)) break;
    if (payloadSize > size - i) break;
    if (type == kMasteringDisplayPayload && display != nullptr && payloadSize >= kMasteringDisplayBytes) {
      ReadMasteringDisplay(bytes + i, display);
      ++found;
    } else if (type == kContentLightPayload && light != nullptr && payloadSize >= kContentLightBytes) {
      ReadContentLight(bytes + i, light);
      ++found;
    }
    i += payloadSize;
  }
  return found;
}

}  // namespace
}  // namespace qln

uint32_t qlnutilFindColorSEI(const DFrame* frame, ContentLightRecord* light,
                             MasteringDisplayRecord* display) {
  using namespace qln;
  if (frame == nullptr || frame->frameData == nullptr || frame->frameSize < kSmallestFrame) return 0;
  if (light != nullptr) *light = {};
  if (display != nullptr) *display = {};

  PrivateCopy copy(frame->frameSize);
  if (!copy.ok()) return 0;
  std::memcpy(copy.data(), frame->frameData, frame->frameSize);
  if (!BeginsWithStartCode(copy.data(), frame->frameSize)) {
    qlnUtilh264SizeToMarker(copy.data(), frame->frameSize);
  }

  uint32_t found = 0;
  UnitWalk walk(copy.data(), frame->frameSize, kSmallestFrame);
  while (walk.Next()) {
    const uint32_t header = SeiHeaderBytes(walk.unit(), walk.size());
    if (header == 0 || walk.size() <= header) continue;
    // In place: the walk has passed these bytes.
    uint8_t* const bytes = copy.data() + (walk.unit() - copy.data()) + header;
    const uint32_t size = walk.size() - header;
    const size_t removed = RemoveEmulationPrevention(bytes, bytes, size, kRemovalSeiPayload);
    found += ReadMessages(bytes, size - removed, light, display);
  }
  return found;
}
