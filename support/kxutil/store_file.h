// A settings file on the disk: read whole, locked, and replaced in one step.
#ifndef KXUTIL_STORE_FILE_H
#define KXUTIL_STORE_FILE_H

#include <cstddef>
#include <string>
#include <string_view>

namespace qln {

// The bytes of a file, in a block of the utility layer.
class StoreText {
 public:
  StoreText() = default;
  ~StoreText();
  StoreText(const StoreText&) = delete;
  StoreText& operator=(const StoreText&) = delete;

  // Room for so many bytes; null without memory.
  char* Allocate(size_t size);
  void SetSize(size_t size) { size_ = size; }
  std::string_view view() const { return {block_, size_}; }

 private:
  char* block_ = nullptr;
  size_t size_ = 0;
};

enum class StoreFileState { kRead, kMissing, kUnreadable };

// Reads a file whole. When it is unreadable, `problem` says why.
StoreFileState ReadStoreFile(const std::string& path, StoreText& text, std::string& problem);

// Keeps other writers of a settings file off while it lives: a lock on the file's folder, since the file
// itself is replaced. Readers need none.
class StoreFolderLock {
 public:
  // Waits for the lock for half a minute. `problem` says why it is not held.
  StoreFolderLock(const std::string& path, std::string& problem);
  ~StoreFolderLock();
  StoreFolderLock(const StoreFolderLock&) = delete;
  StoreFolderLock& operator=(const StoreFolderLock&) = delete;

  bool held() const { return descriptor_ >= 0; }
  // The file itself, where the path is a symbolic link; it need not be there yet.
  const std::string& target() const { return target_; }

 private:
  int descriptor_ = -1;
  std::string target_;
};

// Writes the text beside the file, gives it the file's owner, group, permissions, access control list and
// user attributes as far as the user may, flushes it, and puts it in the file's place. The lock must be held.
// False with a text in `problem`; the file then stays as it was.
bool ReplaceStoreFile(const std::string& target, std::string_view text, std::string& problem);

}  // namespace qln

#endif
