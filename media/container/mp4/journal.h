// The journal of a change in place: the bytes of a file that will be overwritten, on disk before they are.
#ifndef MEDIA_CONTAINER_MP4_JOURNAL_H
#define MEDIA_CONTAINER_MP4_JOURNAL_H

#include <functional>
#include <string>

#include "container/mp4/disk.h"
#include "container/mp4/source.h"

namespace qlnmedia::mp4 {

// Bytes of a file that change; those beyond its end are not there yet.
struct Region {
  uint64_t at = 0;
  uint64_t bytes = 0;
};

// Calls `take` with each of them, in the order of the file; they do not overlap. Called more than once.
using Regions = std::function<void(const std::function<void(const Region&)>& take)>;

// Writes the journal of a file and has it on disk. Throws Error, and takes the journal away again, where that
// cannot be.
void WriteJournal(const std::string& journal, const Source& file, const Regions& regions, Disk& disk);

// False where there is none. `whole` is false where it is cut off, so that nothing had been overwritten.
// Otherwise the file, open for writing as `descriptor`, is put back, flushed. Throws Error where the
// journal is whole and not of this file.
struct JournalState {
  bool there = false;
  bool whole = false;
};
JournalState PutBack(const std::string& journal, const std::string& path, int descriptor, Disk& disk);

void RemoveJournal(const std::string& journal, Disk& disk);

}  // namespace qlnmedia::mp4

#endif
