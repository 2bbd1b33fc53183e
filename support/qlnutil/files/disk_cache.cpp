// CKXDiskCache. The order of the file calls is what hosts see of it (a growing file, a handle of their own
// making), so it is kept to the letter; only the copies are held inside the buffer, whatever the members say.

#include <algorithm>
#include <cstring>

#include "qlnutil/kxdiskcache.h"

namespace {

constexpr uint32_t kPage = 4096;  // refills begin at multiples of it
constexpr uint32_t kBufferAlignment = 1024;
constexpr uint32_t kWaitLimit = 1500;  // milliseconds
constexpr uint32_t kWaitStep = 2;
constexpr uint32_t kPollsOnAStoppedClock = 10000;
constexpr uint32_t kOutOfMemory = 0xFFFFFFFFu;

// Tells how long a short read has been waiting, and gives up also on a clock that does not move.
class WaitLimit {
 public:
  explicit WaitLimit(uint32_t startTime) : start_(startTime), last_(startTime) {}

  bool IsReached() {
    const uint32_t now = kxOSGetMs();
    if (now - start_ >= kWaitLimit) return true;
    stopped_ = now == last_ ? stopped_ + 1 : 0;
    last_ = now;
    return stopped_ >= kPollsOnAStoppedClock;
  }

 private:
  uint32_t start_;
  uint32_t last_;
  uint32_t stopped_ = 0;
};

// What a refill at `start` asks for when it is bounded by the file's size.
uint32_t AmountToFileEnd(KXFileHandle handle, uint64_t start, uint32_t cacheSize, uint32_t length) {
  uint64_t size = 0;
  kxOSGetFileSizeEx(handle, &size);
  const uint64_t left = size > start ? size - start : 0;
  if (start <= size && left >= cacheSize) return cacheSize;
  return start > size || left < length ? length : static_cast<uint32_t>(left);
}

}  // namespace

CKXDiskCache::CKXDiskCache()
    : handle_(0),
      rawBuffer_(nullptr),
      alignedBuffer_(nullptr),
      cacheSize_(0),
      windowStart_(0),
      windowEnd_(0),
      retry_(false) {}

CKXDiskCache::CKXDiskCache(const CKXDiskCache&) = default;

CKXDiskCache& CKXDiskCache::operator=(const CKXDiskCache&) = default;

CKXDiskCache::~CKXDiskCache() {
  if (rawBuffer_ != nullptr) KXFree(rawBuffer_);
}

uint32_t CKXDiskCache::SetHandleAndCacheSize(KXFileHandle handle, uint32_t cacheSize, bool retry) {
  handle_ = handle;
  retry_ = retry;
  if (rawBuffer_ != nullptr) KXFree(rawBuffer_);
  const size_t blockSize = size_t{cacheSize} + 2 * kBufferAlignment;
  rawBuffer_ = static_cast<uint8_t*>(KXAlloc(blockSize));
  if (rawBuffer_ == nullptr) {
    alignedBuffer_ = nullptr;
    cacheSize_ = 0;
    return kOutOfMemory;
  }
  std::memset(rawBuffer_, 0, blockSize);  // a read at the end of a file may show bytes that nobody read yet
  const uintptr_t misplaced = reinterpret_cast<uintptr_t>(rawBuffer_) % kBufferAlignment;
  alignedBuffer_ = rawBuffer_ + (kBufferAlignment - misplaced) % kBufferAlignment;
  cacheSize_ = cacheSize;
  windowStart_ = 0;
  windowEnd_ = 0;
  return 0;
}

// A hit runs straight down to the one copy. What decides against it is told apart in ReadOutside: small reads
// come by the million.
uint32_t CKXDiskCache::Read(void* destination, uint64_t position, uint32_t length, uint32_t* delivered,
                            uint32_t flags) {
  const uint64_t offset = position - windowStart_;
  const bool isHit = length <= cacheSize_ - kPage && position >= windowStart_ && position < windowEnd_ &&
                     length < windowEnd_ - position && offset + length < cacheSize_;
  if (!isHit) [[unlikely]] {
    return ReadOutside(static_cast<uint8_t*>(destination), position, length, delivered, flags);
  }
  CopyMemoryFast(destination, alignedBuffer_ + offset, length);
  *delivered = length;
  return 0;
}

uint32_t CKXDiskCache::ReadOutside(uint8_t* destination, uint64_t position, uint32_t length,
                                   uint32_t* delivered, uint32_t flags) {
  *delivered = 0;
  // The subtraction wraps: a cache of less than a page is taken for almost every length.
  if (length > cacheSize_ - kPage || alignedBuffer_ == nullptr) {
    return ReadDirectly(destination, position, length, delivered);
  }
  if (position < windowStart_ || position >= windowEnd_ || length >= windowEnd_ - position) {
    return ReadPastWindow(destination, position, length, delivered, flags);
  }
  // In a window that reaches behind the buffer.
  CopyFromBuffer(destination, position - windowStart_, length);
  *delivered = length;
  return 0;
}

uint32_t CKXDiskCache::ReadDirectly(uint8_t* destination, uint64_t position, uint32_t length,
                                    uint32_t* delivered) const {
  kxOSSeek(handle_, position);
  uint32_t count = 0;
  const bool read = kxOSReadFile(handle_, destination, length, &count, nullptr) != 0;
  const bool plausible = count <= length;
  if (plausible) *delivered = count;
  return read && plausible ? 0 : kxOSGetLastError();
}

uint32_t CKXDiskCache::ReadPastWindow(uint8_t* destination, uint64_t position, uint32_t length,
                                      uint32_t* delivered, uint32_t flags) {
  // A read that ends just at the end of the window goes on to a refill, though nothing is left of it.
  if (position >= windowStart_ && position < windowEnd_) {
    const uint32_t count = static_cast<uint32_t>(windowEnd_ - position);
    CopyFromBuffer(destination, position - windowStart_, count);
    *delivered = count;
    position += count;
  }

  windowStart_ = position & ~uint64_t{kPage - 1};
  if (kxOSSeek(handle_, windowStart_) != windowStart_) {
    const uint32_t error = kxOSGetLastError();
    ErrOut("Diskcache seek failed 0x%08X ", error);
    return error | QLN_CACHE_FAILED;
  }
  const uint32_t startTime = kxOSGetMs();
  const bool toFileEnd = (flags & QLN_CACHE_END_MASK) == QLN_CACHE_TO_FILE_END;
  const uint32_t amount = toFileEnd ? AmountToFileEnd(handle_, windowStart_, cacheSize_, length) : cacheSize_;

  const uint32_t needed = length - *delivered;
  uint32_t readSoFar = 0;
  uint32_t lastError = 0;
  if (needed != 0) {
    // Only a length above the cache size, of less than a page, asks for more than the buffer holds. The read
    // then goes through a block that begins as the buffer does, and what fits comes back.
    uint8_t* const staging = amount > cacheSize_ ? static_cast<uint8_t*>(KXAlloc(amount)) : nullptr;
    if (amount > cacheSize_) {
      if (staging == nullptr) return kOutOfMemory;
      CopyMemoryFast(staging, alignedBuffer_, cacheSize_);
    }
    uint8_t* const target = staging != nullptr ? staging : alignedBuffer_;
    const bool filled = Fill(target, amount, needed, startTime, &readSoFar, &lastError);
    if (staging != nullptr) {
      CopyMemoryFast(alignedBuffer_, staging, cacheSize_);
      KXFree(staging);
    }
    // Without an error it is the end of the file, and no failure.
    if (!filled) return lastError == 0 ? 0 : lastError | QLN_CACHE_FAILED;
  }
  windowEnd_ = windowStart_ + readSoFar;
  if (needed != 0) CopyFromBuffer(destination + *delivered, position - windowStart_, needed);
  *delivered = length;
  return lastError;
}

// Reads until what is needed is there. Where it stays short, lastError is the one to report.
bool CKXDiskCache::Fill(uint8_t* target, uint32_t amount, uint32_t needed, uint32_t startTime,
                        uint32_t* readSoFar, uint32_t* lastError) const {
  WaitLimit wait(startTime);
  for (;;) {
    const uint32_t request = amount - *readSoFar;
    uint32_t count = 0;
    if (kxOSReadFile(handle_, target + *readSoFar, request, &count, nullptr) != 0 && count <= request) {
      *readSoFar += count;
    } else {
      *lastError = kxOSGetLastError();
    }
    if (*readSoFar >= needed) return true;
    if (!retry_ || wait.IsReached()) {
      *lastError = kxOSGetLastError();
      return false;
    }
    Sleep(kWaitStep);
  }
}

// What lies outside the buffer (a window that a failed refill left behind, a cache of less than a page) comes
// as zero bytes.
void CKXDiskCache::CopyFromBuffer(uint8_t* destination, uint64_t offset, uint32_t length) const {
  if (offset <= cacheSize_ && length <= cacheSize_ - offset) {
    CopyMemoryFast(destination, alignedBuffer_ + offset, length);
    return;
  }
  const uint32_t inside = offset < cacheSize_ ? cacheSize_ - static_cast<uint32_t>(offset) : 0;
  if (inside != 0) CopyMemoryFast(destination, alignedBuffer_ + offset, inside);
  ZeroMemoryFast(destination + inside, length - inside);
}
