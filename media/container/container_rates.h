// Rates of pictures that MKV itself tells, by the default duration of its frames.
#ifndef MEDIA_CONTAINER_CONTAINER_RATES_H
#define MEDIA_CONTAINER_CONTAINER_RATES_H

#include <vector>

#include "container/libav_handles.h"
#include "container/media_file.h"

namespace qlnmedia {

// Of each stream that the head of the file names; 0/1 where it tells none, and for files of other kinds.
// Opens the file once more: the search for what streams hold fills in rates of its own.
std::vector<AVRational> ContainerRates(const MediaFile& file);

}  // namespace qlnmedia

#endif
