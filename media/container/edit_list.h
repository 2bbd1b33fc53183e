// The edit list of a track of MOV or MP4: when what its media holds is shown.
#ifndef MEDIA_CONTAINER_EDIT_LIST_H
#define MEDIA_CONTAINER_EDIT_LIST_H

#include <optional>
#include <vector>

#include "container/mp4/movie.h"
#include "container/mp4/source.h"

namespace qlnmedia {

// A piece of the media and where it stands in the movie, all in seconds.
struct EditPiece {
  double start = 0;    // in the movie
  double seconds = 0;  // how long it is; infinite for one that goes on to the end
  double media = 0;    // where it begins in the media
};

// Times that differ by less are the same.
constexpr double kSameTime = 1e-6;

// The pieces of a track (ISO/IEC 14496-12 clause 8.6.6) in the order of their times, without the empty ones:
// the whole media where there is no list. Those that begin 24 hours and more behind the movie's begin are
// left out.
std::vector<EditPiece> ReadEditList(mp4::Reader& reader, const mp4::Movie& movie, const mp4::Track& track);

// When the first picture of a movie's first video track is shown, in seconds of the movie; nothing where
// there is none, or its tables cannot be relied on.
std::optional<double> FirstPictureOf(const mp4::Source& source, const mp4::Layout& layout,
                                     const mp4::Movie& movie);

}  // namespace qlnmedia

#endif
