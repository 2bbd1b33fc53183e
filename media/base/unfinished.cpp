// Tells of a path when it comes and when it goes.

#include "base/unfinished.h"

#include <utility>

namespace qlnmedia {

Unfinished::Unfinished(const UnfinishedCallback& callback, std::string path)
    : callback_(callback), path_(std::move(path)) {
  if (callback_) callback_(path_, true);
}

Unfinished::~Unfinished() {
  if (callback_) callback_(path_, false);
}

}  // namespace qlnmedia
