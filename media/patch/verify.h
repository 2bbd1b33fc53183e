// Reads a patched file back and holds it against its source, as an independent reader shows both.
#ifndef MEDIA_PATCH_VERIFY_H
#define MEDIA_PATCH_VERIFY_H

#include <cstdint>
#include <string>
#include <vector>

#include "patch/kept_packets.h"
#include "qlnmedia/patch.h"

namespace qlnmedia {

// What must not change of a stream's packets: what KeptPacket holds.
struct StreamKept {
  uint64_t packets = 0;
  uint64_t digest = 0;
};
std::vector<StreamKept> KeptOf(const std::string& file, const EditOptions& changes);
// Throws Error, naming `name`, where those of an MP4 or MOV file differ from what they were. Says what was
// compared.
std::string RequireKept(const std::vector<StreamKept>& before, const std::vector<StreamKept>& after,
                        const std::string& name);

// Holds an MP4 or MOV file against the other, packet by packet; not the bytes, since whoever knows the tables
// compares samples. Throws Error, naming `name` (what `out` is going to be
// called) and the first difference. Tracks of `kinds` may differ, and one of each may have come in. Says what
// was compared.
struct TrackKinds {
  bool timecode = false;
  bool captions = false;
};
std::string VerifyPatched(const std::string& in, const std::string& out, const EditOptions& changes,
                          const std::string& name, TrackKinds kinds = {});

// What is said of a file that is no MP4 or MOV.
struct MuxedVerified {
  std::string text;                    // what was compared
  std::vector<std::string> otherwise;  // durations that readers tell otherwise, a line for each stream
};
// Holds such a file against the one that it was made of, packet by packet, bytes included. Throws as
// VerifyPatched does, but for what the container holds no other way.
MuxedVerified VerifyMuxed(const std::string& in, const std::string& out, const EditOptions& changes,
                          const std::string& name);

// What is said of a comparison that boxes and their samples alone were enough for.
std::string VerifiedText(uint64_t samples, uint64_t tracks);

}  // namespace qlnmedia

#endif
