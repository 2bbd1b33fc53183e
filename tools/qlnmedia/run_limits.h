// How much memory and time a run may take.
#ifndef TOOLS_QLNMEDIA_RUN_LIMITS_H
#define TOOLS_QLNMEDIA_RUN_LIMITS_H

#include <cstdint>
#include <string>

namespace qlnmedia {

// "200M": a number of bytes, with K, M or G behind it for so many of 1024, 1024 x 1024 ... 0 for what is
// no size.
uint64_t ParseSize(const std::string& text);

// From here on the process takes no more memory for its data: what is asked for beyond that is not there.
// Throws Error where the system does not take the limit.
void LimitMemory(const std::string& size);

// Ends the process with kExitFailure and a line on standard error when so many seconds are over, and takes
// away what is there and not finished. Called before any thread is started; throws Error where that cannot be
// had.
void LimitSeconds(uint32_t seconds);

}  // namespace qlnmedia

#endif
