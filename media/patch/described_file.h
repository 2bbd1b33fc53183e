// Files whose streams libavformat describes, whatever else stands in them, or their boxes alone.
#ifndef MEDIA_PATCH_DESCRIBED_FILE_H
#define MEDIA_PATCH_DESCRIBED_FILE_H

#include <memory>
#include <string>
#include <vector>

#include "container/media_file.h"
#include "container/mp4/carrier.h"
#include "qlnmedia/patch.h"

namespace qlnmedia {

struct DescribedFile {
  std::unique_ptr<MediaFile> media;  // null where boxes tell enough
  bool whole = true;                 // false where `media` is the movie alone, without samples
  std::vector<MediaStream> streams;
};

// Opens a file. One of MP4 and MOV that libavformat refuses for boxes that say nothing of its streams, such
// as segment indexes of several levels or groups of samples in a version that it does not know, is described
// by its `moov` alone. Throws what opening the whole file throws where that is of no help either.
DescribedFile OpenDescribed(const std::string& path);

// Describes the file of a carrier for changes: by its boxes where the changes ask for nothing that these do
// not tell, such as rates, so that libav need not be loaded; else as OpenDescribed. Throws Error where it
// holds no video.
DescribedFile DescribeFor(const PatchOptions& options, const mp4::Carrier& carrier);

}  // namespace qlnmedia

#endif
