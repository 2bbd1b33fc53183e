// The Dolby Vision search in both forms, and the configuration body at any position.

#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <memory>

#include "qlnutil/qlnhevc.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::unique_ptr<uint8_t[]> bytes(new uint8_t[size]);
  if (size != 0) std::memcpy(bytes.get(), data, size);
  for (int32_t mode = 0; mode < 2; ++mode) {
    uint8_t* sei = nullptr;
    uint8_t* rpu = nullptr;
    uint32_t seiSize = 0;
    uint32_t rpuSize = 0;
    qlnUtilFindDolbyVisionMetadata(bytes.get(), static_cast<uint32_t>(size), mode, &sei, &seiSize, &rpu,
                                   &rpuSize);
    for (const uint8_t* found : {sei, rpu}) {
      if (found != nullptr && (found < bytes.get() + 5 || found > bytes.get() + size)) std::abort();
    }
  }
  if (size < sizeof(DvvcConfigRecord) + 1) return 0;
  DvvcConfigRecord config;
  std::memcpy(&config, data + 1, sizeof config);
  QLNBitState state{bytes.get(), static_cast<int32_t>(size), 0, data[0]};
  qlnutilWrite_DVVC_CR(&state, &config);
  return 0;
}
