// Pictures come out of PES packets where those tell them; else from libavformat, and their bytes are
// found again in the packets of the file.

#include "patch/transport_file.h"

#include <fmt/format.h>

#include <deque>
#include <map>
#include <memory>
#include <new>
#include <optional>
#include <set>
#include <utility>
#include <vector>

#include "base/error.h"
#include "base/progress.h"
#include "container/container_kind.h"
#include "container/libav_handles.h"
#include "container/mp4/output_file.h"
#include "container/packet_joiner.h"
#include "container/raw_end.h"
#include "container/ts/carrier.h"
#include "container/ts/damage.h"
#include "container/ts/kept_packets.h"
#include "patch/edited_streams.h"
#include "patch/packet_input.h"
#include "patch/pes_pictures.h"
#include "patch/verify.h"

namespace qlnmedia {

namespace {

// Pictures between the demuxer, their editors and the carrier.
class TransportPictures {
 public:
  TransportPictures(const MediaFile& in, EditedStreams& streams, ts::Carrier& carrier)
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

std::set<uint16_t> AllIdentifiers(const MediaFile& in) {
  std::set<uint16_t> identifiers;
  for (const MediaStream& stream : in.streams()) identifiers.insert(static_cast<uint16_t>(stream.id));
  return identifiers;
}

// One pass over the file, into an output that has no name yet.
class Pass {
 public:
  Pass(const PatchOptions& options, const MediaFile& in, const PacketInput& input)
      : options_(options),
        input_(input),
        streams_(input, options),
        identifiers_(IdentifiersOf(in, streams_)),
        kept_(identifiers_),
        damage_(AllIdentifiers(in)),
        source_(options.in) {
    if (!options.dryRun) out_.emplace(options.out, mp4::Disk::System(), options.unfinished);
    carrier_.emplace(source_, out_ ? &*out_ : nullptr, identifiers_, [this](const ts::Row& row) {
      kept_.Take(row);
      damage_.Take(row);
    });
  }

  // Whether PES packets may tell the pictures.
  bool KnowsPes() const { return PesPictures::Knows(input_, streams_); }
  // False where they do not; the pass is of no use then.
  bool CarryPes(Progress& meter) {
    PesPictures pictures(input_, streams_, *carrier_);
    return pictures.Carry([&meter](uint64_t at) { meter.At(static_cast<int64_t>(at)); });
  }

  // The same by what libavformat reads of the file.
  void CarryPackets(MediaFile& in, Progress& meter) {
    const PacketHandle packet(av_packet_alloc());
    if (packet == nullptr) throw std::bad_alloc();
    TransportPictures pictures(in, streams_, *carrier_);
    PacketJoiner joiner(in);
    while (in.Read(packet.get())) {
      meter.At(packet->pos);
      if (const PacketHandle whole = joiner.Take(packet.get())) pictures.Take(*whole);
    }
    while (const PacketHandle whole = joiner.Finish()) pictures.Take(*whole);
    pictures.Finish();
  }

  // The note of a stream that has damaged packets, or nothing.
  std::string DamageNote() {
    const std::optional<uint16_t> identifier = damage_.Finish();
    if (!identifier) return {};
    for (const MediaStream& stream : input_.streams()) {
      if (stream.id == *identifier)
        return fmt::format("a packet of stream {} is cut off or damaged", stream.index);
    }
    return {};
  }

  // Reads the output back, gives it its name, and says what was done.
  PatchResult Finish(const std::vector<std::string>& notes) {
    RequireRate(options_, *carrier_);
    MuxedVerified verified;
    if (out_) {
      ts::RequireOthersKept(source_, kept_, mp4::FileSource(out_->Readable()), identifiers_, options_.out);
      if (options_.verify) verified = VerifyMuxed(options_.in, out_->Readable(), options_, options_.out);
      out_->Finish();
    }
    PatchResult result;
    result.lines = streams_.Summary();
    if (carrier_->counts().putIn != 0)
      result.lines.push_back(fmt::format("{} packets put in, where the stream had no null packets for them",
                                         carrier_->counts().putIn));
    const auto warn = [&result](const std::string& text) { result.lines.push_back("warning: " + text); };
    for (const std::string& text : notes) {
      if (!text.empty()) warn(text);
    }
    for (const std::string& text : verified.otherwise) warn(text);
    if (!verified.text.empty()) result.lines.push_back(verified.text);
    return result;
  }

 private:
  const PatchOptions& options_;
  const PacketInput& input_;
  EditedStreams streams_;
  std::set<uint16_t> identifiers_;
  ts::KeptPackets kept_;
  ts::Damage damage_;
  mp4::FileSource source_;
  std::optional<mp4::OutputFile> out_;
  std::optional<ts::Carrier> carrier_;
};

}  // namespace

PatchResult PatchTransport(const PatchOptions& options, MediaFile& in) {
  const std::string early = EndNote(in);
  if (!options.dryRun) RequireOutput(in, options.out);
  const PacketInput input(in, true);
  const char* const doing = options.dryRun ? "reading" : "patching";
  auto pass = std::make_unique<Pass>(options, in, input);
  Progress meter(options.progress, doing, in.sizeBytes());
  std::string note;
  const bool tried = pass->KnowsPes();
  if (tried && pass->CarryPes(meter)) {
    note = pass->DamageNote();
  } else {
    if (tried) {
      pass.reset();
      pass = std::make_unique<Pass>(options, in, input);
    }
    pass->CarryPackets(in, meter);
    // What was lost on the way stays lost: the packets that came are carried, and joints of streams look the
    // same.
    if (in.stoppedEarly() && early.empty())
      throw Error(options.in, in.endNote(), "a damaged file is not patched");
    note = in.endNote();
  }
  PatchResult result = pass->Finish({early, note});
  meter.Done();
  return result;
}

}  // namespace qlnmedia
