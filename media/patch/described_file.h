// Files whose streams libavformat describes, whatever else stands in them.
#ifndef MEDIA_PATCH_DESCRIBED_FILE_H
#define MEDIA_PATCH_DESCRIBED_FILE_H

#include <memory>
#include <string>

#include "container/media_file.h"

namespace qlnmedia {

struct DescribedFile {
  std::unique_ptr<MediaFile> media;
  bool whole = true;  // false where `media` is the movie alone, without samples
};

// Opens a file. One of MP4 and MOV that libavformat refuses for boxes that say nothing of its streams, such
// as segment indexes of several levels or groups of samples in a version that it does not know, is described
// by its `moov` alone. Throws what opening the whole file throws where that is of no help either.
DescribedFile OpenDescribed(const std::string& path);

}  // namespace qlnmedia

#endif
