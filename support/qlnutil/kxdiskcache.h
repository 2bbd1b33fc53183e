/// @file kxdiskcache.h
/// A read cache that puts one aligned window of a file in memory in front of a file handle, so that many
/// small reads at nearby positions cost one large one.
///
/// It works through the file calls of the utility layer (kxOSSeek, kxOSReadFile, kxOSGetFileSizeEx), its
/// clock and Sleep. A host makes the objects, so their size and the order of their members are part of the
/// surface. An object serves one thread at a time and moves the file position of its handle: the host does
/// not use the handle elsewhere during a read.
#ifndef QLNUTIL_KXDISKCACHE_H
#define QLNUTIL_KXDISKCACHE_H

#include <stddef.h>
#include <stdint.h>

#include "kxutil/kxutil.h"
#include "qlnutil/qlnapi.h"

/// The flag bits that choose how a refill treats the end of the file: of the values 0, 2, 4 and 6 under this
/// mask only QLN_CACHE_TO_FILE_END bounds it by the file's size. No other bit has a meaning.
#define QLN_CACHE_END_MASK 6u
/// Stands for "to the end of the file".
#define QLN_CACHE_TO_FILE_END 4u

/// Set in a result: the read did not get through the cache; the other bits are the file system's error.
#define QLN_CACHE_FAILED 0x80000000u

/// A read cache in front of one file of the utility layer, in blocks that begin at multiples of 4096 bytes.
class QLN_API CKXDiskCache {
 public:
  /// No handle, no buffer: every Read goes straight to the (null) handle and fails.
  CKXDiskCache();

  /// Copies all members as they stand, the buffer included: both objects then share one block that the
  /// destructor of each frees, so a host must not let both be destroyed, nor give one of them a new cache.
  /// @{
  CKXDiskCache(const CKXDiskCache& other);
  CKXDiskCache& operator=(const CKXDiskCache& other);
  /// @}

  /// Frees the buffer. The handle stays open: it is the host's.
  virtual ~CKXDiskCache();

  /// Takes a file and a new, empty cache for it; an earlier one is freed.
  /// @param handle open for reading; borrowed.
  /// @param cacheSize bytes that a refill asks for. A cache below 4096 bytes serves only what lies in its
  /// first `cacheSize` bytes behind a multiple of 4096; what a read asks for behind them comes as zero bytes
  /// (where the cached way is taken at all: it then is for every length up to 2^32 - 4096 + cacheSize).
  /// @param retry whether a read that comes up short waits for the file to grow, up to 1500 milliseconds.
  /// @return 0; 0xFFFFFFFF when there is no memory: handle and flag are taken, every Read goes straight to
  /// the file.
  uint32_t SetHandleAndCacheSize(KXFileHandle handle, uint32_t cacheSize, bool retry);

  /// Reads bytes of the file. A read inside the window costs one copy and no file call; one that reaches its
  /// end or lies outside takes what there is and moves the window to the multiple of 4096 at or in front of
  /// what is left, whatever was asked for. One longer than the cache less 4096 goes straight to the file.
  /// @param[out] destination @p length bytes; may be null if that is 0.
  /// @param position of the first byte in the file.
  /// @param length bytes wanted.
  /// @param[out] delivered bytes that stand in @p destination; never null. On a short read, what the window
  /// still had. Past a refill it is @p length, also where up to 4095 bytes at the end of the file were not
  /// there to be read: these then hold what the buffer held.
  /// @param flags (flags & QLN_CACHE_END_MASK) equal to QLN_CACHE_TO_FILE_END: a refill asks for no more than
  /// the file holds, or for @p length if even that is more.
  /// @return 0 on success; the last error, plain, when a direct read fails or when one of the reads of a
  /// refill failed and a later one filled the need; the last error with QLN_CACHE_FAILED when the seek fails
  /// (with the message "Diskcache seek failed 0x%08X ") or when the read stays short, but 0 for a short read
  /// without an error, as at the end of the file; 0xFFFFFFFF when there is no memory for a refill that is
  /// larger than the cache.
  uint32_t Read(void* destination, uint64_t position, uint32_t length, uint32_t* delivered, uint32_t flags);

 private:
  uint32_t ReadOutside(uint8_t* destination, uint64_t position, uint32_t length, uint32_t* delivered,
                       uint32_t flags);
  uint32_t ReadPastWindow(uint8_t* destination, uint64_t position, uint32_t length, uint32_t* delivered,
                          uint32_t flags);
  uint32_t ReadDirectly(uint8_t* destination, uint64_t position, uint32_t length, uint32_t* delivered) const;
  bool Fill(uint8_t* target, uint32_t amount, uint32_t needed, uint32_t startTime, uint32_t* readSoFar,
            uint32_t* lastError) const;
  void CopyFromBuffer(uint8_t* destination, uint64_t offset, uint32_t length) const;

  KXFileHandle handle_;
  uint8_t* rawBuffer_;      // from KXAlloc
  uint8_t* alignedBuffer_;  // inside it, at a multiple of 1024
  uint32_t cacheSize_;
  uint64_t windowStart_;  // file position of the first byte in the buffer
  uint64_t windowEnd_;    // file position behind the last valid one
  bool retry_;
};

static_assert(sizeof(CKXDiskCache) == 64, "hosts make the objects");

#endif
