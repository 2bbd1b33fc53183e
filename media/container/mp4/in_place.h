// A change written into the file itself, where it fits: the time is that of the bytes that change.
//
// Before the first byte is overwritten a journal beside the file (its name and ".qlnmedia-journal") holds all
// that will be, with a checksum, and is on disk. Whatever ends the work in between, Recover puts the file
// back as it was; a journal that is not whole says that nothing was overwritten yet.
#ifndef MEDIA_CONTAINER_MP4_IN_PLACE_H
#define MEDIA_CONTAINER_MP4_IN_PLACE_H

#include <functional>
#include <string>

#include "container/mp4/carrier.h"
#include "container/mp4/disk.h"

namespace qlnmedia::mp4 {

struct InPlaceResult {
  Carrier::Counts counts;
  uint64_t bytesWritten = 0;  // into the file; 0 where nothing changes
  enum class Movie { kStays, kGrowsIntoFreeSpace, kGrowsAtTheEnd, kMovesToTheEnd } movie = Movie::kStays;
};

// Changes the file at `path`. A journal that stands beside it is recovered first. Throws Error, with the
// file as it was, where the change does not fit, and says how many bytes are missing; and where another run
// is at work on the file.
InPlaceResult ChangeInPlace(const std::string& path, const Change& change, const CarrierOptions& options = {},
                            Disk& disk = Disk::System());

// The same with a change that is made when the file is this run's alone, and as it was before any cut off
// change. `make` gives the change, which is kept until the end; with `write` false nothing is written, and a
// journal is an Error. `check`, where there is one, looks at the changed file; what it throws puts it back.
struct InPlaceWork {
  std::function<const Change&(const Carrier& carrier)> make;
  std::function<void()> check = {};
  bool write = true;
};
InPlaceResult ChangeInPlace(const std::string& path, const InPlaceWork& work,
                            const CarrierOptions& options = {}, Disk& disk = Disk::System());

enum class Recovered {
  kNothing,    // there is no journal
  kUntouched,  // the journal was not whole: nothing had been overwritten
  kPutBack,    // the file is as it was before the change
};

// Puts the file back where a change was cut off. Throws Error where the journal is not of this file.
Recovered Recover(const std::string& path, Disk& disk = Disk::System());

std::string JournalPath(const std::string& path);
// Throws Error where a change of the file was cut off and not recovered yet.
void RequireNoJournal(const std::string& path);

}  // namespace qlnmedia::mp4

#endif
