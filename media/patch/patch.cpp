// Runs a patch: reads every packet, hands those of coded video to their patcher, writes them all.

#include "patch/patch.h"

#include <deque>
#include <memory>
#include <new>
#include <utility>

#include "base/error.h"
#include "container/coded_stream.h"
#include "container/media_file.h"
#include "container/media_writer.h"
#include "container/packet_joiner.h"
#include "edit/caption_patcher.h"
#include "edit/stream_patcher.h"
#include "patch/verify.h"

namespace qlnmedia {

PatchResult PatchFile(const PatchOptions& options) {
  MediaFile in(options.in);
  in.RequireVideo();
  std::vector<std::unique_ptr<StreamPatcher>> patchers(in.context()->nb_streams);
  bool found = false;
  for (unsigned i = 0; i < in.context()->nb_streams; ++i) {
    const std::optional<Codec> codec = CodecOf(*in.context()->streams[i]);
    if (!codec) continue;
    patchers[i] = std::make_unique<StreamPatcher>(in, i, *codec, options);
    found = true;
  }
  if (!found && (options.beyondCaptions() || !options.captions))
    throw Error(options.in, "has no H.264 or HEVC stream");

  std::unique_ptr<CaptionPatcher> captions;
  if (options.captions) captions = std::make_unique<CaptionPatcher>(in, *options.captions, options.progress);

  MediaWriter out(in, options.out);
  for (unsigned i = 0; i < patchers.size(); ++i) {
    if (patchers[i] != nullptr) patchers[i]->PatchParameters(out.stream(i));
  }
  if (!options.dryRun) out.Begin();
  Progress meter(options.progress, options.dryRun ? "reading" : "patching", in.sizeBytes());
  const PacketHandle packet(av_packet_alloc());
  if (packet == nullptr) throw std::bad_alloc();
  // Packets wait until the place of each picture in presentation order is known.
  std::deque<PacketHandle> waiting;
  const auto send = [&](bool all) {
    while (!waiting.empty()) {
      AVPacket* const front = waiting.front().get();
      const auto index = static_cast<unsigned>(front->stream_index);
      if (index < patchers.size() && patchers[index] != nullptr) {
        if (!all && !patchers[index]->Ready()) return;
        patchers[index]->PatchPacket(front);
      }
      if (!options.dryRun) out.Write(front);
      waiting.pop_front();
    }
  };
  const auto take = [&](PacketHandle whole) {
    const auto index = static_cast<unsigned>(whole->stream_index);
    if (index < patchers.size() && patchers[index] != nullptr) patchers[index]->Announce(*whole);
    waiting.push_back(std::move(whole));
    send(false);
  };
  PacketJoiner joiner(in);
  while (in.Read(packet.get())) {
    meter.At(packet->pos);
    const auto index = static_cast<unsigned>(packet->stream_index);
    if (captions != nullptr && index == captions->stream()) captions->PatchPacket(packet.get());
    if (PacketHandle whole = joiner.Take(packet.get())) take(std::move(whole));
  }
  while (PacketHandle whole = joiner.Finish()) take(std::move(whole));
  if (!in.endNote().empty()) throw Error(options.in, in.endNote(), "a damaged file is not patched");
  send(true);
  if (!options.dryRun) out.Finish();
  meter.Done();
  if (options.verify && !options.dryRun) VerifyPatched(options.in, options.out);
  PatchResult result;
  for (const auto& patcher : patchers) {
    if (patcher != nullptr && options.beyondCaptions()) result.lines.push_back(patcher->Summary());
  }
  if (captions != nullptr) {
    for (std::string& line : captions->Summary()) result.lines.push_back(std::move(line));
  }
  if (options.verify && !options.dryRun)
    result.lines.push_back("verified: slices, times and other streams are the input's");
  return result;
}

}  // namespace qlnmedia
