// Header metadata as far as patches need it: which elements of essence are pictures, and the sets that
// describe them. Everything else in it is carried as it stands.
#ifndef MEDIA_CONTAINER_MXF_METADATA_H
#define MEDIA_CONTAINER_MXF_METADATA_H

#include <map>
#include <optional>
#include <vector>

#include "base/rational.h"
#include "container/mxf/klv.h"
#include "container/mxf/local_set.h"

namespace qlnmedia::mxf {

// A picture track of a package whose essence is in the file.
struct PictureTrack {
  uint32_t materialTrack = 0;  // the track of a material package that shows it; 0 for none
  uint32_t number = 0;         // of its essence elements; 0 where it is not told
  uint32_t bodySid = 0;
  uint32_t indexSid = 0;
  Rational editRate{0, 1};
  int64_t duration = -1;         // in edit units; -1 for unknown
  std::optional<Key> container;  // label of how its essence is wrapped
  std::optional<Key> coding;
  Klv descriptor;
  std::optional<Klv> avc;   // AVC sub-descriptor
  bool hasDetails = false;  // sub-descriptors, of whatever kind
};

// One copy of the header metadata.
struct MetadataCopy {
  Klv primer;
  bool closed = false;  // of a closed partition
  std::vector<PictureTrack> tracks;
};

// Takes the sets of one copy, one after the other.
class MetadataReader {
 public:
  MetadataReader(Reader& reader, const Klv& primer);

  void Add(const Klv& klv);
  // What they say together; sets that are damaged say nothing.
  MetadataCopy Finish(bool closed) const;

 private:
  struct Set {
    Klv klv;
    std::vector<Property> properties;
  };
  using Sets = std::vector<Set>;

  Bytes Value(const Klv& klv) const;
  const Set* Find(ByteSpan instance) const;
  std::vector<const Set*> Referred(const Set& from, uint16_t tag) const;
  void AddTracks(const Set& package, MetadataCopy& copy) const;
  const Set* DescriptorOf(const Set& package, uint64_t trackId) const;
  std::optional<PictureTrack> TrackOf(const Set& package, const Set& track) const;
  uint32_t MaterialTrackOf(ByteSpan package, uint64_t trackId) const;

  Reader& reader_;
  MetadataCopy copy_;
  std::vector<PrimerEntry> primer_;
  Sets sets_;
  std::map<Bytes, size_t> byInstance_;
  mutable uint64_t followed_ = 0;  // references, of which hostile sets have no end
};

}  // namespace qlnmedia::mxf

#endif
