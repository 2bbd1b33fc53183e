// Codes of CTA-708 that readers and writers of caption channel packets share.
#ifndef MEDIA_CAPTIONS_SERVICE_CODES_H
#define MEDIA_CAPTIONS_SERVICE_CODES_H

#include <cstdint>

namespace qlnmedia::captions {

inline constexpr int kExtendedService = 7;  // service_number behind which extended_service_number stands
inline constexpr uint8_t kCarriageReturn = 0x0D;
inline constexpr uint8_t kDeleteWindows = 0x8C;
inline constexpr uint8_t kDefineWindow0 = 0x98;

}  // namespace qlnmedia::captions

#endif
