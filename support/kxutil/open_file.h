// A file that is open through the file calls of the utility layer, which a host may have brought.
#ifndef KXUTIL_OPEN_FILE_H
#define KXUTIL_OPEN_FILE_H

#include <cstdint>
#include <utility>

#include "kxutil/kxutil.h"

namespace qln {

class OpenFile {
 public:
  OpenFile() = default;
  ~OpenFile() { Close(); }
  OpenFile(const OpenFile&) = delete;
  OpenFile& operator=(const OpenFile&) = delete;

  // A file that exists, for reading. False if it does not open.
  bool Open(const char* path) { return Take(path, KX_ACCESS_READ, KX_OPEN_EXISTING); }
  // A new file, for writing. False if it cannot be made or the name is taken.
  bool Make(const char* path) { return Take(path, KX_ACCESS_WRITE, KX_CREATE_NEW); }
  // Closes the file, also when it goes. False if what was written may be lost.
  bool Close() {
    const KXFileHandle handle = std::exchange(handle_, KX_INVALID_FILE_HANDLE);
    return handle == KX_INVALID_FILE_HANDLE || kxOSCloseFile(handle) != 0;
  }
  // False if not all bytes went out.
  bool Write(const char* bytes, uint32_t count) {
    uint32_t written = 0;
    return kxOSWriteFile(handle_, bytes, count, &written, nullptr) != 0 && written == count;
  }
  KXFileHandle handle() const { return handle_; }

 private:
  bool Take(const char* path, uint32_t access, uint32_t disposition) {
    Close();
    handle_ = kxOSCreateFile(path, access, KX_SHARE_READ, nullptr, disposition, 0, nullptr);
    return handle_ != KX_INVALID_FILE_HANDLE;
  }

  KXFileHandle handle_ = KX_INVALID_FILE_HANDLE;
};

}  // namespace qln

#endif
