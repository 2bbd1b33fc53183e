// Reads every packet, hands those of coded video to their editor, writes them all.

#include "patch/muxed_file.h"

#include <array>
#include <cstdint>
#include <deque>
#include <new>
#include <optional>
#include <utility>

#include "base/error.h"
#include "base/progress.h"
#include "container/coded_stream.h"
#include "container/edited_stream.h"
#include "container/media_writer.h"
#include "container/mp4/picture_size.h"
#include "container/raw_end.h"
#include "patch/container_facts.h"
#include "patch/edited_streams.h"
#include "patch/packet_input.h"
#include "patch/verify.h"
#include "units/coded_stream.h"

namespace qlnmedia {

namespace {

// Packets on their way through the editors.
class Packets {
 public:
  Packets(EditedStreams& streams, MediaWriter& out) : streams_(streams), out_(out) {}

  void Take(PacketHandle packet) {
    if (EditedStream* const edited = Find(*packet)) {
      edited->editor->Push({Bytes(packet->data, packet->data + packet->size), packet->pts, packet->dts,
                            (packet->flags & AV_PKT_FLAG_KEY) != 0});
    }
    waiting_.push_back(std::move(packet));
    Send();
  }

  void Finish() {
    for (auto& [index, edited] : streams_.streams()) edited.editor->Finish();
    Send();
  }

 private:
  EditedStream* Find(const AVPacket& packet) {
    const auto found = streams_.streams().find(static_cast<unsigned>(packet.stream_index));
    return found == streams_.streams().end() ? nullptr : &found->second;
  }

  // Packets keep the file's order, so that all wait for one that its editor does not give back yet.
  void Send() {
    for (; !waiting_.empty(); waiting_.pop_front()) {
      AVPacket* const packet = waiting_.front().get();
      if (EditedStream* const edited = Find(*packet)) {
        const std::optional<EditedUnit> unit = edited->editor->Pull();
        if (!unit) return;
        if (unit->unit.key) packet->flags |= AV_PKT_FLAG_KEY;
        if (unit->changed) ReplacePacketData(packet, unit->unit.data);
      }
      out_.Write(packet);
    }
  }

  EditedStreams& streams_;
  MediaWriter& out_;
  std::deque<PacketHandle> waiting_;
};

// What the container shall say of the size of cropped pictures, where it says one and their sets stand in
// front of them.
std::optional<std::array<uint32_t, 2>> CroppedSize(const MediaFile& in, unsigned index,
                                                   const EditedStream& edited) {
  const ContainerColour& said = in.containerColour(index);
  const Codec codec = *UnitCodecOf(edited.stream.codec);
  const std::optional<mp4::PictureSize> size =
      PictureSizeOf(codec, ReadConfigRecord(codec, edited.stream.privateData).units(),
                    ReadConfigRecord(codec, edited.editor->privateData()).units());
  if (!size || said.width <= 0 || said.height <= 0) return {};
  return mp4::FollowedSize(*size, {static_cast<uint32_t>(said.width), static_cast<uint32_t>(said.height)});
}

void SetParametersOf(const MediaFile& in, const EditedStreams& streams, const EditOptions& options,
                     const MediaWriter& out) {
  for (const auto& [index, edited] : streams.streams()) {
    if (edited.stream.codec == VideoCodec::kMpeg2) continue;
    OutputParameters parameters;
    parameters.privateData = edited.editor->privateData();
    parameters.colour = options.colour;
    parameters.fullRange = options.fullRange;
    parameters.sampleAspect = options.sampleAspect;
    parameters.mastering = options.mastering;
    parameters.lightLevel = options.lightLevel;
    if (options.cropping) parameters.size = CroppedSize(in, index, edited);
    parameters.interlaced = options.interlaced;
    parameters.bottomFirst = edited.stream.bottomFirst;
    SetParameters(out.stream(index), parameters);
  }
}

}  // namespace

PatchResult PatchMuxed(const PatchOptions& options, MediaFile& in) {
  // A stream without an index is whole as far as it goes; who patches it hears that it does not go to its
  // end.
  const std::string early = in.isRawStream() ? EndNote(in) : std::string();
  const PacketInput input(in, false);
  EditedStreams streams(input, options);
  MediaWriter out(in, options.out, options.unfinished, options.dryRun);
  SetParametersOf(in, streams, options, out);
  out.Begin();
  Progress meter(options.progress, options.dryRun ? "reading" : "patching", in.sizeBytes());
  const PacketHandle packet(av_packet_alloc());
  if (packet == nullptr) throw std::bad_alloc();
  Packets packets(streams, out);
  while (in.Read(packet.get())) {
    meter.At(packet->pos);
    PacketHandle taken(av_packet_alloc());
    if (taken == nullptr) throw std::bad_alloc();
    av_packet_move_ref(taken.get(), packet.get());
    packets.Take(std::move(taken));
  }
  if (!in.endNote().empty()) throw Error(options.in, in.endNote(), "a damaged file is not patched");
  packets.Finish();
  MuxedVerified verified;
  const std::vector<std::string> otherwise = out.Finish([&](const std::string& written) {
    verified = VerifyMuxed(options.in, written, options, options.out.empty() ? options.in : options.out);
  });
  meter.Done();
  PatchResult result;
  result.lines = streams.Summary();
  const auto warn = [&result](const std::string& text) { result.lines.push_back("warning: " + text); };
  if (!early.empty()) warn(early);
  if (!in.endNote().empty()) warn(in.endNote());
  for (const std::string& text : otherwise) warn(text);
  for (const std::string& text : verified.otherwise) warn(text);
  if (!options.dryRun) result.lines.push_back(verified.text);
  return result;
}

}  // namespace qlnmedia
