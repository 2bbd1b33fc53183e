// Memory that ran out, also where whoever asked for it went on without: a stream that swallows what is thrown
// in it, a library that leaves a tag out.
#ifndef TOOLS_QLNMEDIA_MEMORY_WATCH_H
#define TOOLS_QLNMEDIA_MEMORY_WATCH_H

#include <string>

namespace qlnmedia {

// What there is to say then; with the limit, where one was set.
const char* MemoryLine() noexcept;
void SetMemoryLine(const std::string& line);

// From here on, each allocation of C++ that fails is noted for the thread that asked.
void WatchMemory();
// For whoever sees an allocation fail that is none of C++.
void NoteMemoryRanOut() noexcept;
// Whether an allocation failed in this thread since the last ForgetMemory, or since the thread began.
bool MemoryRanOut() noexcept;
void ForgetMemory() noexcept;
// Throws std::bad_alloc where one failed: what was worked out may lack something.
void RequireMemory();

}  // namespace qlnmedia

#endif
