// Foreign text made fit to be seen, for the engine's own rooms.
#ifndef MEDIA_BASE_TEXT_H
#define MEDIA_BASE_TEXT_H

#include "qlnmedia/text.h"

#endif
