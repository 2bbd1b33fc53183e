// Numbers and rates, for the engine's own rooms.
#ifndef MEDIA_BASE_NUMBERS_H
#define MEDIA_BASE_NUMBERS_H

#include "qlnmedia/numbers.h"

#endif
