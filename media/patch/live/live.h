// Live patches, for the engine's own rooms.
#ifndef MEDIA_PATCH_LIVE_LIVE_H
#define MEDIA_PATCH_LIVE_LIVE_H

#include "qlnmedia/patch.h"

#endif
