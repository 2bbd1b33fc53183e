// Samples of an MP4 or MOV track as the stream editor takes them: in one framing, and with the parameter sets
// that they need, whatever sample description they belong to.
#ifndef MEDIA_PATCH_SAMPLE_UNITS_H
#define MEDIA_PATCH_SAMPLE_UNITS_H

#include <optional>
#include <vector>

#include "container/mp4/change.h"
#include "container/mp4/sample_table.h"
#include "qlnmedia/patch.h"
#include "qlnmedia/stream_editor.h"
#include "units/coded_stream.h"

namespace qlnmedia {

// Where the sample description changes, its sets go into the first sample behind: the editor sees one stream,
// as a decoder does. They are taken out of what comes back.
class SampleUnits {
 public:
  // `records` is the private data of each sample description, in order; there is at least one.
  SampleUnits(VideoCodec codec, std::vector<Bytes> records);

  // Length fields that differ between the descriptions are given one size, which the editor has to know.
  std::optional<int> lengthBytes() const { return lengthBytes_; }

  // Slices are given with their heads alone, which is all that an editor looks at, where each has a length of
  // its own.
  struct Cut {
    size_t at = 0;     // of its length field in what is given
    size_t slice = 0;  // which of the slices, from 0
    size_t size = 0;   // of all of it
    uint8_t last = 0;  // its last byte
  };
  struct Given {
    Bytes bytes;
    size_t borrowed = 0;  // sets in front that are not the sample's
    std::vector<Cut> cuts;
  };
  // False for a sample that is passed by: it is empty, or encrypted. In decoding order.
  bool Take(const mp4::Sample& sample, mp4::ByteSpan bytes, Given& given);

  // False where no unit of the sample is a parameter set, as its units' heads tell; nothing else is read.
  bool MayHoldSets(mp4::Reader& reader, const mp4::Sample& sample) const;

  // True where both hold the same but for what a patch may put in, take out or change.
  bool IsKept(const mp4::Sample& sample, ByteSpan before, ByteSpan after, const EditOptions& changes) const;

  // The edited sample as it goes back into the track, of one with cut slices the parts between these. Throws
  // Error, with `where` in front, for a unit that outgrows its length field.
  struct Returned {
    Bytes bytes;
    std::vector<mp4::SamplePart> parts = {};  // in its stead
    int64_t sequenceSets = 0;                 // of the borrowed sets, those that were changed
    int64_t videoSets = 0;
  };
  Returned GiveBack(uint32_t description, const Given& given, const Bytes& edited,
                    const std::string& where) const;

 private:
  const ConfigRecord& RecordOf(uint32_t description) const;
  Bytes CutSlices(ByteSpan bytes, std::vector<Cut>& cuts) const;
  std::vector<mp4::SamplePart> PartsOf(const Given& given, const Bytes& edited,
                                       const std::string& where) const;

  std::optional<Codec> codec_;  // nothing for MPEG-2
  std::vector<ConfigRecord> records_;
  Framing framing_;  // of what the editor is given
  std::optional<int> lengthBytes_;
  const ConfigRecord* current_ = nullptr;
};

// What an editor of a track's pictures is told of a sample.
PacketView ViewOf(const mp4::Sample& sample, ByteSpan bytes);

}  // namespace qlnmedia

#endif
