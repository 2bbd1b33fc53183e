// Runs a patch: reads every packet, hands those of coded video to their editor, writes them all.

#include "patch/patch.h"

#include <deque>
#include <new>
#include <utility>

#include "base/error.h"
#include "base/progress.h"
#include "container/media_file.h"
#include "container/media_writer.h"
#include "container/packet_joiner.h"
#include "patch/edited_streams.h"
#include "patch/verify.h"

namespace qlnmedia {

PatchResult PatchFile(const PatchOptions& options) {
  MediaFile in(options.in);
  in.RequireVideo();
  EditedStreams streams(in, options);
  MediaWriter out(in, options.out);
  streams.SetParametersOf(out);
  if (!options.dryRun) out.Begin();
  Progress meter(options.progress, options.dryRun ? "reading" : "patching", in.sizeBytes());
  const PacketHandle packet(av_packet_alloc());
  if (packet == nullptr) throw std::bad_alloc();
  // Packets keep the file's order, so that all wait for one that its editor does not give back yet.
  std::deque<PacketHandle> waiting;
  const auto send = [&] {
    for (; !waiting.empty() && streams.Pull(waiting.front().get()); waiting.pop_front()) {
      if (!options.dryRun) out.Write(waiting.front().get());
    }
  };
  const auto take = [&](PacketHandle whole) {
    streams.Push(*whole);
    waiting.push_back(std::move(whole));
    send();
  };
  PacketJoiner joiner(in);
  while (in.Read(packet.get())) {
    meter.At(packet->pos);
    if (PacketHandle whole = joiner.Take(packet.get())) take(std::move(whole));
  }
  while (PacketHandle whole = joiner.Finish()) take(std::move(whole));
  if (!in.endNote().empty()) throw Error(options.in, in.endNote(), "a damaged file is not patched");
  streams.Finish();
  send();
  if (!options.dryRun) out.Finish();
  meter.Done();
  if (options.verify && !options.dryRun) VerifyPatched(options.in, options.out);
  PatchResult result{streams.Summary()};
  if (options.verify && !options.dryRun)
    result.lines.push_back("verified: slices, times and other streams are the input's");
  return result;
}

}  // namespace qlnmedia
