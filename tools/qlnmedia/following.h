// Reports that are printed while their input is read.
#ifndef TOOLS_QLNMEDIA_FOLLOWING_H
#define TOOLS_QLNMEDIA_FOLLOWING_H

#include "batch.h"
#include "inputs.h"

namespace qlnmedia {

// Throws CLI::ValidationError where there is more than one input.
void RequireOneToFollow(const Inputs& inputs);

// Checks an input and prints each finding when it shows, as a line of text or of JSON. What comes back is the
// last line. Throws ToolExit of success where nobody reads standard output any more.
FileResult FollowCheck(const Input& input, bool json);

}  // namespace qlnmedia

#endif
