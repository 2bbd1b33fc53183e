// Four entry points that hosts link against and that do nothing.

#include "qlnutil/qlninfo.h"

uint32_t XMLFromQLNAudio() { return 1; }
uint32_t XMLFromQLNInfo() { return 1; }
uint32_t XMLFromQLNSystem() { return 1; }
uint32_t XMLFromQLNVideo() { return 1; }
