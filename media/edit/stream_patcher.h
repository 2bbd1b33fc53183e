// Patches one coded video stream: its private data, its container's description, its packets.
#ifndef MEDIA_EDIT_STREAM_PATCHER_H
#define MEDIA_EDIT_STREAM_PATCHER_H

#include <map>
#include <memory>
#include <string>

#include "container/media_file.h"
#include "edit/interlace_edit.h"
#include "edit/options.h"
#include "edit/timecode_patcher.h"
#include "edit/unit_adder.h"
#include "units/config_record.h"

namespace qlnmedia {

class StreamPatcher {
 public:
  // Throws Error for a stream that cannot be patched, saying why.
  StreamPatcher(const MediaFile& in, unsigned index, Codec codec, const EditOptions& options);

  // Changes the parameters of the output's stream: private data, colour, HDR side data.
  void PatchParameters(AVStream* out);
  // Tells a packet that will be patched later, in coding order.
  void Announce(const AVPacket& packet) {
    if (timecodes_ != nullptr) timecodes_->Announce(packet);
  }
  // Whether enough is announced to patch the next packet before the end of the stream.
  bool Ready() const { return timecodes_ == nullptr || timecodes_->Ready(); }
  // Changes a packet in place, each in the order in which they were announced; untouched packets keep their
  // buffer.
  void PatchPacket(AVPacket* packet);
  // What was changed, in one line; empty if nothing was.
  std::string Summary() const;

 private:
  bool AddUnits(std::vector<Unit>& units, AVPacket* packet);
  bool PatchUnits(std::vector<Unit>& units, bool randomAccess);
  bool PatchSet(Bytes& unit);
  [[noreturn]] void Fail(const std::string& what, const std::string& advice = {}) const;

  const MediaFile& in_;
  unsigned index_;
  Codec codec_;
  const EditOptions& options_;
  SpsEdit edit_;
  ConfigRecord config_;
  UnitAdder adder_;
  std::optional<InterlaceEdit> interlace_;
  Bytes hdrUnit_;                               // the SEI unit that goes in, or nothing
  std::unique_ptr<TimecodePatcher> timecodes_;  // null where none are asked for
  // Sets rewritten before: streams repeat them.
  std::map<Bytes, Bytes> rewritten_;
  int setsChanged_ = 0;
  int configSetsChanged_ = 0;
  int seiRemoved_ = 0;
  int seiAdded_ = 0;
  bool containerColour_ = false;
};

// Replaces the bytes of a packet; its times, flags and side data stay.
void ReplacePacketData(AVPacket* packet, const Bytes& data);

}  // namespace qlnmedia

#endif
