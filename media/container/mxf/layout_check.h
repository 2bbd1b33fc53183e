// Reads a file that was written back, and holds it against its source, triplet by triplet.
#ifndef MEDIA_CONTAINER_MXF_LAYOUT_CHECK_H
#define MEDIA_CONTAINER_MXF_LAYOUT_CHECK_H

#include <string>

#include "container/mxf/layout.h"

namespace qlnmedia::mxf {

// Throws Error, naming `name`, unless the output has the source's triplets but for fill items, with the
// lengths that they had where nothing changes, what was aligned is aligned, and partitions, the random index
// pack and index entries point to what they pointed to. Reads heads of triplets, and no essence.
void CheckLayout(const Source& source, const Layout& layout, const Source& output, const std::string& name);

}  // namespace qlnmedia::mxf

#endif
