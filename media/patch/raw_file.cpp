// Reads every packet, hands it to its editor, and writes what comes back.

#include "patch/raw_file.h"

#include <deque>
#include <optional>
#include <utility>

#include "base/error.h"
#include "base/progress.h"
#include "container/container_kind.h"
#include "container/mp4/output_file.h"
#include "container/raw_end.h"
#include "patch/edited_streams.h"
#include "patch/packet_input.h"
#include "patch/verify.h"

namespace qlnmedia {

namespace {

// Packets on their way through the editors, in the file's order.
class Packets {
 public:
  // `out` may be null: then nothing is written, and all else is done.
  Packets(EditedStreams& streams, mp4::OutputFile* out) : streams_(streams), out_(out) {}

  void Take(const MediaPacket& packet) {
    Bytes bytes(packet.view.data.begin(), packet.view.data.end());
    StreamEditor* const editor = Find(packet.stream);
    if (editor != nullptr) editor->Push({bytes, packet.view.pts, packet.view.dts, packet.view.key});
    waiting_.push_back({editor, std::move(bytes)});
    Send();
  }

  void Finish() {
    for (auto& [index, edited] : streams_.streams()) edited.editor->Finish();
    Send();
  }

 private:
  struct Waiting {
    StreamEditor* editor;  // null where none has it
    Bytes bytes;
  };

  StreamEditor* Find(unsigned stream) {
    const auto found = streams_.streams().find(stream);
    return found == streams_.streams().end() ? nullptr : found->second.editor.get();
  }

  void Send() {
    for (; !waiting_.empty(); waiting_.pop_front()) {
      std::optional<EditedUnit> unit;
      if (waiting_.front().editor != nullptr) {
        unit = waiting_.front().editor->Pull();
        if (!unit) return;
      }
      if (out_ != nullptr) out_->Write(unit && unit->changed ? unit->unit.data : waiting_.front().bytes);
    }
  }

  EditedStreams& streams_;
  mp4::OutputFile* out_;
  std::deque<Waiting> waiting_;
};

}  // namespace

PatchResult PatchRaw(const PatchOptions& options, MediaFile& in) {
  if (options.dryRun) {
    OutputFormatOf(in);
  } else {
    RequireOutput(in, options.out);
  }
  // A stream without an index is whole as far as it goes; who patches it hears that it does not go to its
  // end.
  const std::string early = EndNote(in);
  const PacketInput input(in, false);
  EditedStreams streams(input, options);
  std::optional<mp4::OutputFile> out;
  if (!options.dryRun) out.emplace(options.out, mp4::Disk::System(), options.unfinished);
  Progress meter(options.progress, options.dryRun ? "reading" : "patching", in.sizeBytes());
  Packets packets(streams, out ? &*out : nullptr);
  for (MediaPacket packet; in.Next(packet);) {
    meter.At(packet.view.position);
    packets.Take(packet);
  }
  if (!in.endNote().empty()) throw Error(options.in, in.endNote(), "a damaged file is not patched");
  packets.Finish();
  MuxedVerified verified;
  if (out) {
    verified = VerifyMuxed(options.in, out->Readable(), options, options.out);
    out->Finish();
  }
  meter.Done();
  PatchResult result;
  result.lines = streams.Summary();
  const auto warn = [&result](const std::string& text) { result.lines.push_back("warning: " + text); };
  if (!early.empty()) warn(early);
  for (const std::string& text : verified.otherwise) warn(text);
  if (!verified.text.empty()) result.lines.push_back(verified.text);
  return result;
}

}  // namespace qlnmedia
