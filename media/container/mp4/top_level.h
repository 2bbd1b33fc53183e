// What a reader of MP4 and MOV that does not take samples apart wants to know of a file's boxes. Nothing here
// throws for what boxes say; Error comes from a file that cannot be read.
#ifndef MEDIA_CONTAINER_MP4_TOP_LEVEL_H
#define MEDIA_CONTAINER_MP4_TOP_LEVEL_H

#include <cstdint>
#include <optional>
#include <set>

#include "container/mp4/source.h"

namespace qlnmedia::mp4 {

// The first box of the outermost level whose size is not possible, or leads past the end of the file. Zero
// bytes behind the last box are none.
struct WrongBox {
  uint32_t type = 0;
  uint64_t at = 0;
  uint64_t said = 0;  // the size that it says
  uint64_t left = 0;  // bytes from its beginning to the end of the file
};
std::optional<WrongBox> FindWrongBox(const Source& source);

// True where the file has a whole `moov` with a track in it.
bool HasIndex(const Source& source);

// True where the movie says that it goes on in fragments (`mvex`).
bool IsFragmented(const Source& source);

// True for QuickTime: the brand 'qt  ', or no `ftyp` at all.
bool IsQuickTime(const Source& source);

// Tracks of which a sample description is encrypted, or says how it is (`sinf`).
std::set<uint32_t> EncryptedTracks(const Source& source);

}  // namespace qlnmedia::mp4

#endif
