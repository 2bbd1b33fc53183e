// Movie fragments while a file changes: sizes and places in `moof`.
#ifndef MEDIA_CONTAINER_MP4_FRAGMENT_EDIT_H
#define MEDIA_CONTAINER_MP4_FRAGMENT_EDIT_H

#include "container/mp4/edit.h"

namespace qlnmedia::mp4 {

// Adds the growth of runs whose samples had one size and get many.
void PlanFragment(Edit& edit, const Fragment& fragment);

// Writes what is another in a fragment.
void WriteFragment(Edit& edit, const Fragment& fragment);

}  // namespace qlnmedia::mp4

#endif
