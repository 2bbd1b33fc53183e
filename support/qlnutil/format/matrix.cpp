// The choice of a colour matrix by raster, with the one value of the configuration store that steers it.

#include "qlnutil/format/matrix.h"

#include <atomic>

#include "kxutil/kxutil.h"
#include "qlnutil/format/signal_format.h"
#include "qlnutil/qlnformat.h"

namespace qln {
namespace {

constexpr uint32_t kNotYetRead = 0xFFFFFFFF;
constexpr uint32_t kForced = 1;
constexpr uint32_t kFlagSecondRange = 0x1000;

// The store's value, read once a process. Threads that come first together may each read it.
constinit std::atomic<uint32_t> forcedVideoRange{kNotYetRead};

// Reads the value, and writes the default where there is none, so that a user of the store finds the key.
uint32_t ReadForcedVideoRange() {
  static constexpr const char* kSection = "Tarnwick\\Advanced";
  static constexpr const char* kKey = "ForceVideoRangeMatrix";
  uint32_t value = 0;
  if (kxCFGValueDword(KX_DEFAULT_STORE, kSection, kKey, &value, KX_CONFIG_READ) != 0) {
    value = 0;
    kxCFGValueDword(KX_DEFAULT_STORE, kSection, kKey, &value, KX_CONFIG_WRITE);
  }
  return value;
}

}  // namespace

void ForgetForcedVideoRange() { forcedVideoRange.store(kNotYetRead, std::memory_order_relaxed); }

}  // namespace qln

int32_t GetMatrixBySize(int32_t width, int32_t height, uint32_t flags) {
  using namespace qln;
  uint32_t forced = forcedVideoRange.load(std::memory_order_relaxed);
  if (forced == kNotYetRead) {
    forced = ReadForcedVideoRange();
    forcedVideoRange.store(forced, std::memory_order_relaxed);
  }
  const bool secondRange = forced != kForced && (flags & kFlagSecondRange) != 0;
  int32_t matrix = width < 721 ? 0 : 4;
  if (AbsoluteHeight(height) > 1125) matrix = 6;
  return secondRange ? matrix + 1 : matrix;
}
