// A name of the surface that has no task.

#include "qlnutil/qlnhevc.h"

int32_t qlnutilGetHvcc(void) { return -1; }
