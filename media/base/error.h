// How the engine fails, for its own rooms.
#ifndef MEDIA_BASE_ERROR_H
#define MEDIA_BASE_ERROR_H

#include "qlnmedia/error.h"

#endif
