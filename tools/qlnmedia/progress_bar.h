// A progress bar on standard error.
#ifndef TOOLS_QLNMEDIA_PROGRESS_BAR_H
#define TOOLS_QLNMEDIA_PROGRESS_BAR_H

#include "qlnmedia/progress.h"

namespace qlnmedia {

// Draws each step where standard error is a terminal; empty where it is not.
ProgressCallback ProgressBar();

}  // namespace qlnmedia

#endif
