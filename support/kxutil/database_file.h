// The file that a settings database stands in: looked at, made, replaced in one step, and set aside. It is
// never changed in place, so that whoever reads it, or copies it, has a whole one.
#ifndef KXUTIL_DATABASE_FILE_H
#define KXUTIL_DATABASE_FILE_H

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <string_view>

namespace qln {

// Which file stands under a name, and in what state.
struct FileState {
  bool exists = false;
  dev_t device = 0;
  ino_t inode = 0;
  off_t size = 0;
  int64_t changed = 0;  // nanoseconds
  bool operator==(const FileState&) const = default;
  bool SameFile(const FileState& other) const {
    return exists && other.exists && device == other.device && inode == other.inode;
  }
};

// False with a text in `problem` for what is no plain file, and where nobody can tell. A missing file is
// none.
bool LookAt(const std::string& path, FileState& state, std::string& problem);

// A relative path counts from the working folder.
std::string AbsolutePath(const std::string& path);

// The file that symbolic links lead to, which need not be there.
std::string TargetOf(const std::string& path);

// Makes an empty file for its owner alone, with its folders, unless there is one.
bool MakeFile(const std::string& path, std::string& problem);

// Writes the bytes beside the file, gives them its owner, group, permissions, access list and extended
// attributes as far as this user may, flushes them, and the folder, so that no journal of `old` comes back
// beside them, and puts them in the file's place, if that is `old` still. The caller keeps other writers off.
// False with a text in `problem`; the file then stays as it is, unless it is the flushing of its new name
// that failed. `made` is the new file.
bool ReplaceFile(const std::string& path, const FileState& old, std::string_view bytes, FileState& made,
                 std::string& problem);

// Renames the file, if it is `old` still, with its journals, to a name that says that it is damaged and that
// was free. Empty with a text in `problem` if that cannot be done; empty without one if it was another file.
std::string SetAside(const std::string& path, const FileState& old, std::string& problem);

}  // namespace qln

#endif
