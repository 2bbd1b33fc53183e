// What ancillary data packets hold, by their identifiers (the registry of SMPTE ST 291).
#ifndef CAPTIONS_ANC_NAMES_H
#define CAPTIONS_ANC_NAMES_H

#include <cstdint>
#include <string>

namespace qlnmedia::captions {

// A name for a data identifier and a secondary one, such as "captions (CDP)"; empty where there is none. Of
// identifiers of 0x80 and more, whose second word numbers blocks, the first one counts.
std::string AncPacketName(uint8_t did, uint8_t sdid);

}  // namespace qlnmedia::captions

#endif
