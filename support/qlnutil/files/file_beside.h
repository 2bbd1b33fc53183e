// A new file that is written beside the place that it will take, so that nobody ever finds half of it there.
#ifndef QLNUTIL_FILES_FILE_BESIDE_H
#define QLNUTIL_FILES_FILE_BESIDE_H

#include <functional>
#include <string>

namespace qln {

// The file is called ".project-PID-N" in the folder of its target and is gone with the object unless it has
// been put in its place. What killed processes left there under such names is removed first: files of
// processes that are no more, which nobody holds the lock of.
class FileBeside {
 public:
  // `make` makes a new file of that path and gives 0 or an error number; EEXIST leads to the next name.
  FileBeside(std::string target, const std::function<int(const char*)>& make);
  ~FileBeside();
  FileBeside(const FileBeside&) = delete;
  FileBeside& operator=(const FileBeside&) = delete;

  bool made() const { return descriptor_ >= 0; }
  // For reading; it holds the file's lock.
  int descriptor() const { return descriptor_; }

  // Puts the file, which has been written whole, in its place and sees to it that both file and name are on
  // the disk. False if that failed; what was in the place is then still there.
  bool Replace();
  // The same, but never over anything that is there.
  bool PutWhereNothingIs();

 private:
  bool MoveTo(bool replaces);

  std::string target_;
  std::string path_;  // empty when the file is not there or not ours any more
  int descriptor_ = -1;
};

}  // namespace qln

#endif
