// The older forms in which user data of MPEG-2 pictures carries line 21: that of SCTE 20, and that of DVDs.
#ifndef CAPTIONS_OLD_USER_DATA_H
#define CAPTIONS_OLD_USER_DATA_H

#include <optional>
#include <span>
#include <vector>

#include "qlnmedia/caption_triplet.h"

namespace qlnmedia::captions {

// The pairs of user data in the form of SCTE 20, what stands behind its start code. Its fields count in the
// order of display: `topFirst` says that the first one is the top field, which is field 1 of line 21. Nothing
// for other user data; pairs that the data breaks off in, or whose field is forbidden, are left out.
std::optional<std::vector<Triplet>> ReadScte20UserData(std::span<const uint8_t> data, bool topFirst);

// The same in the form of DVDs, which put the pairs of a whole group of pictures behind its header. The count
// in it is often wrong: as many are taken as are marked.
std::optional<std::vector<Triplet>> ReadDvdUserData(std::span<const uint8_t> data);

// True for user data of either form.
bool IsOldUserData(std::span<const uint8_t> data);

}  // namespace qlnmedia::captions

#endif
