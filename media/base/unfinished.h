// Outputs that are not whole yet, so that whoever started the work can take them away with it.
#ifndef MEDIA_BASE_UNFINISHED_H
#define MEDIA_BASE_UNFINISHED_H

#include <string>

#include "qlnmedia/progress.h"

namespace qlnmedia {

// While this lives, there may be something under the path that is to go if the work ends where it stands.
// Make it before the file or folder is made, and let it end behind the one that has its name, or is gone.
class Unfinished {
 public:
  Unfinished(const UnfinishedCallback& callback, std::string path);
  ~Unfinished();
  Unfinished(const Unfinished&) = delete;
  Unfinished& operator=(const Unfinished&) = delete;

 private:
  UnfinishedCallback callback_;
  std::string path_;
};

}  // namespace qlnmedia

#endif
