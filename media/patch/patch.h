// Patching files, for the engine's own rooms.
#ifndef MEDIA_PATCH_PATCH_H
#define MEDIA_PATCH_PATCH_H

#include "qlnmedia/patch.h"

#endif
