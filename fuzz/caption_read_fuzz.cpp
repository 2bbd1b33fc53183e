// Caption readers on any bytes; what they leave in the frame stays inside its fields.

#include "fuzz_input.h"
#include "qlnutil/inband/caption_payload.h"
#include "qlnutil/qlninband.h"

// Head: reader, rate and counter; then the unit.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  qln::fuzz::DropMessages();
  qln::fuzz::Input input(data, size);
  const uint32_t reader = input.Number(1);
  const uint32_t rate = input.Number(1);
  auto counter = static_cast<uint16_t>(input.Number(2));
  qln::fuzz::Block unit(input.data(), input.left(), input.left());
  const auto unitSize = static_cast<uint32_t>(unit.size);

  const std::unique_ptr<DFrameCaptionPart> part(new DFrameCaptionPart());
  part->captionFlags = part->captionSize = 0xEEEEEEEEu;
  switch (reader % 4) {
    case 0:
      qlnUtilReadH264CaptionsSEI(unit.data(), unitSize, rate, 0, part.get());
      break;
    case 1:
      qlnUtilReadHevcCaptionsSEI(unit.data(), unitSize, 0, &counter, part.get());
      break;
    case 2:
      qlnUtilReadHevcCaptionsSEI(unit.data(), unitSize, 0, nullptr, part.get());
      break;
    default:
      qln::ParseCaptionPayload(unit.data(), unitSize, 0, part->captionData, &part->captionSize,
                               &part->captionFlags);
  }
  if (part->captionSize > 262) __builtin_trap();
  return 0;
}
