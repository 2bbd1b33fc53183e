// Pictures come from libavformat and go through their editors; their bytes are found again in the packets of
// the file.

#include "patch/transport_file.h"

#include <fmt/format.h>

#include <deque>
#include <map>
#include <new>
#include <optional>
#include <utility>

#include "base/error.h"
#include "base/progress.h"
#include "container/container_kind.h"
#include "container/libav_handles.h"
#include "container/mp4/output_file.h"
#include "container/packet_joiner.h"
#include "container/raw_end.h"
#include "container/ts/carrier.h"
#include "container/ts/kept_packets.h"
#include "patch/edited_streams.h"
#include "patch/packet_input.h"
#include "patch/verify.h"

namespace qlnmedia {

namespace {

// Pictures between the demuxer, their editors and the carrier.
class Pictures {
 public:
  Pictures(const MediaFile& in, EditedStreams& streams, ts::Carrier& carrier)
      : in_(in), streams_(streams), carrier_(carrier) {}

  void Take(const AVPacket& packet) {
    const auto index = static_cast<unsigned>(packet.stream_index);
    const auto edited = streams_.streams().find(index);
    if (edited == streams_.streams().end()) return;
    Bytes was(packet.data, packet.data + packet.size);
    edited->second.editor->Push({was, packet.pts, packet.dts, (packet.flags & AV_PKT_FLAG_KEY) != 0});
    waiting_[index].push_back(std::move(was));
    Send(index, *edited->second.editor);
  }

  void Finish() {
    for (auto& [index, edited] : streams_.streams()) {
      edited.editor->Finish();
      Send(index, *edited.editor);
    }
    carrier_.Finish();
  }

 private:
  void Send(unsigned index, StreamEditor& editor) {
    std::deque<Bytes>& waiting = waiting_[index];
    while (!waiting.empty()) {
      const std::optional<EditedUnit> unit = editor.Pull();
      if (!unit) return;
      const Bytes& was = waiting.front();
      carrier_.Take(static_cast<uint16_t>(in_.streams()[index].id), was,
                    unit->changed ? unit->unit.data : was);
      waiting.pop_front();
    }
  }

  const MediaFile& in_;
  EditedStreams& streams_;
  ts::Carrier& carrier_;
  std::map<unsigned, std::deque<Bytes>> waiting_;
};

std::set<uint16_t> IdentifiersOf(const MediaFile& in, const EditedStreams& streams) {
  std::set<uint16_t> identifiers;
  for (const auto& [index, edited] : streams.streams())
    identifiers.insert(static_cast<uint16_t>(in.streams()[index].id));
  return identifiers;
}

void RequireRate(const PatchOptions& options, const ts::Carrier& carrier) {
  if (!options.keepRate || carrier.counts().putIn == 0) return;
  throw Error(
      options.in,
      fmt::format("has {} packets too few of stuffing for what comes in at its rate", carrier.counts().putIn),
      "leave --keep-rate out, or remux it with more null packets");
}

}  // namespace

PatchResult PatchTransport(const PatchOptions& options, MediaFile& in) {
  const std::string early = EndNote(in);
  if (!options.dryRun) RequireOutput(in, options.out);
  const PacketInput input(in, true);
  EditedStreams streams(input, options);
  const std::set<uint16_t> identifiers = IdentifiersOf(in, streams);
  const mp4::FileSource source(options.in);
  std::optional<mp4::OutputFile> out;
  if (!options.dryRun) out.emplace(options.out, mp4::Disk::System(), options.unfinished);
  ts::Carrier carrier(source, out ? &*out : nullptr, identifiers);
  Progress meter(options.progress, options.dryRun ? "reading" : "patching", in.sizeBytes());
  const PacketHandle packet(av_packet_alloc());
  if (packet == nullptr) throw std::bad_alloc();
  Pictures pictures(in, streams, carrier);
  PacketJoiner joiner(in);
  while (in.Read(packet.get())) {
    meter.At(packet->pos);
    if (const PacketHandle whole = joiner.Take(packet.get())) pictures.Take(*whole);
  }
  while (const PacketHandle whole = joiner.Finish()) pictures.Take(*whole);
  // What was lost on the way stays lost: the packets that came are carried, and joints of streams look the
  // same.
  if (in.stoppedEarly() && early.empty())
    throw Error(options.in, in.endNote(), "a damaged file is not patched");
  pictures.Finish();
  RequireRate(options, carrier);
  PatchResult result;
  MuxedVerified verified;
  if (out) {
    ts::RequireOthersKept(source, mp4::FileSource(out->Readable()), identifiers, options.out);
    if (options.verify) verified = VerifyMuxed(options.in, out->Readable(), options, options.out);
    out->Finish();
  }
  meter.Done();
  result.lines = streams.Summary();
  if (carrier.counts().putIn != 0)
    result.lines.push_back(fmt::format("{} packets put in, where the stream had no null packets for them",
                                       carrier.counts().putIn));
  const auto warn = [&result](const std::string& text) { result.lines.push_back("warning: " + text); };
  if (!early.empty()) warn(early);
  if (!in.endNote().empty()) warn(in.endNote());
  for (const std::string& text : verified.otherwise) warn(text);
  if (!verified.text.empty()) result.lines.push_back(verified.text);
  return result;
}

}  // namespace qlnmedia
