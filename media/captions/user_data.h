// Caption data as coded pictures carry it: cc_data() in ATSC user data (ATSC A/53 part 4), which stands in
// registered user data messages of H.264 and HEVC (ITU-T T.35) and in user data of MPEG-2 pictures.
#ifndef CAPTIONS_USER_DATA_H
#define CAPTIONS_USER_DATA_H

#include <optional>
#include <span>
#include <vector>

#include "captions/cdp.h"

namespace qlnmedia::captions {

// payloadType of user_data_registered_itu_t_t35, in both H.264 and HEVC.
inline constexpr int kRegisteredUserData = 4;

// The user data of one picture, from its identifier "GA94" to the marker bits. Takes the first kMostTriplets.
// No three bytes of it can be taken for a start code or ask for emulation prevention.
Bytes MakeUserData(const std::vector<Triplet>& triplets);

// The same as the payload of a registered user data message: country and provider code in front.
Bytes MakeRegisteredUserData(const std::vector<Triplet>& triplets);

// The same as user data of an MPEG-2 picture: its start code in front.
Bytes MakePictureUserData(const std::vector<Triplet>& triplets);

// The triplets of user data that begins with its identifier. Nothing for other user data; triplets that the
// data breaks off in are left out, and so are all where process_cc_data_flag says so.
std::optional<std::vector<Triplet>> ReadUserData(std::span<const uint8_t> data);

// The same for the payload of a registered user data message.
std::optional<std::vector<Triplet>> ReadRegisteredUserData(std::span<const uint8_t> payload);

}  // namespace qlnmedia::captions

#endif
