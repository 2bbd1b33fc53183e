// Whether the index of a file says in which order its pictures are shown.
#ifndef MEDIA_CONTAINER_MXF_ORDER_TOLD_H
#define MEDIA_CONTAINER_MXF_ORDER_TOLD_H

#include "container/mxf/klv.h"

namespace qlnmedia::mxf {

// True where an index table segment has a temporal offset other than 0. Some writers leave all of them 0,
// whatever order the pictures have. Looks at partitions alone, by the random index pack or the footer that
// the header names, and not at essence; false for what cannot be read.
bool TellsOrder(const Source& source);

}  // namespace qlnmedia::mxf

#endif
