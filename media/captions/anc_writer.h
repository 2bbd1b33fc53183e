// Ancillary data packets (SMPTE ST 291) as transport streams carry them (SMPTE ST 2038), written.
#ifndef CAPTIONS_ANC_WRITER_H
#define CAPTIONS_ANC_WRITER_H

#include "captions/anc_packets.h"

namespace qlnmedia::captions {

// A packet as it stands in the payload of a PES packet: words of ten bits with their parity and checksum, up
// to a whole byte with bits that are set. Its user data are 255 words at most.
Bytes WriteSt2038(const AncPacket& packet);

// The packet that carries a caption distribution packet: DID 61h, SDID 01h, in luma on line 9 (SMPTE ST
// 334-1).
AncPacket AncOfCdp(Bytes cdp);

}  // namespace qlnmedia::captions

#endif
