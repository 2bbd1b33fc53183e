// Pictures out of PES packets as they end, into editors, and back into their packets.

#include "patch/live/transport.h"

#include <fmt/format.h>

#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <utility>

#include "base/error.h"
#include "container/ts/carrier.h"
#include "container/ts/damage.h"
#include "patch/cut_picture.h"
#include "patch/live/programs.h"
#include "patch/pes_pictures.h"

namespace qlnmedia {

namespace {

class LiveTransport {
 public:
  LiveTransport(const LiveWork& work, LivePrograms programs) : work_(work) {
    std::set<uint16_t> identifiers;
    for (LiveProgramStream& one : programs.streams) {
      identifiers.insert(one.identifier);
      Stream& stream = streams_[one.identifier];
      LiveCaptions* const captions = order_.empty() ? work.captions : nullptr;
      stream.live =
          std::make_unique<LiveStream>(one.index, std::move(one.stream), work.options, captions, work.report);
      order_.push_back(&stream);
    }
    damage_.emplace(identifiers);
    for (const Stream* const stream : order_) {
      if (const std::string note = stream->live->OrderNote(); !note.empty()) work.report(note);
    }
    for (const uint16_t identifier : programs.without)
      work.report(
          fmt::format("{}: the stream of packet identifier {} has told no parameter sets so far: it "
                      "is passed on as it comes",
                      work.options.in, identifier));
    carrier_.emplace(work.source, &work.sink, identifiers, [this](const ts::Row& row) { Watch(row); });
    carrier_->SendAtOnce();
  }

  std::vector<std::string> Run() {
    for (ts::PesView pes; carrier_->Next(pes);) {
      work_.progress(carrier_->at());
      work_.source.LetGo(carrier_->at());
      Take(pes);
    }
    for (auto& [identifier, stream] : streams_) {
      if (!stream.picture.empty()) Push(stream, identifier);
      stream.live->Finish();
      Send(stream, identifier);
    }
    carrier_->Finish();
    return Summary();
  }

 private:
  struct Waiting {
    Bytes picture;
    CutPicture cut;
    size_t packets = 0;  // PES packets of it
  };
  struct Stream {
    std::unique_ptr<LiveStream> live;
    Bytes picture;       // that more may come of; empty where there is none
    size_t packets = 0;  // PES packets of it
    int64_t pts = kNoTime;
    int64_t dts = kNoTime;
    std::optional<int64_t> last;  // time stamp, as far as it was counted on
    std::deque<Waiting> waiting;  // those that its editor has
  };

  // Packets that are lost or marked; each kind of place is told once in a while.
  void Watch(const ts::Row& row) {
    damage_->Take(row);
    const std::optional<uint16_t> found = damage_->TakeFound();
    if (!found) return;
    constexpr uint64_t kApart = 1 << 20;
    const uint64_t at = carrier_ ? carrier_->at() : 0;
    ++damaged_;
    if (told_ != 0 && at < told_ + kApart) return;
    told_ = at + 1;
    work_.report(
        fmt::format("{}: near byte {}: a packet of identifier {} is lost, cut off or damaged: "
                    "passed on as it came",
                    work_.options.in, at, *found));
  }

  // What begins no picture goes on with the one before, if it has no time of its own.
  void Take(ts::PesView& pes) {
    Stream& stream = streams_.at(pes.identifier);
    const bool begins = IsVideoId(pes.streamId) && BeginsWithPicture(stream.live->codec(), pes.stream);
    if (!begins && !stream.picture.empty() && !pes.pts) {
      stream.picture.insert(stream.picture.end(), pes.stream.begin(), pes.stream.end());
      ++stream.packets;
      return;
    }
    if (!stream.picture.empty()) Push(stream, pes.identifier);
    if (!begins) return Pass(stream, pes.identifier, 1, "a PES packet begins with no picture", 0);
    stream.picture = std::move(pes.stream);
    stream.packets = 1;
    stream.pts = stream.dts = kNoTime;
    if (!pes.pts) return;
    stream.dts = CountOn(stream.last, pes.dts ? *pes.dts : *pes.pts);
    stream.pts = CountOn(stream.last, *pes.pts);
    stream.last = stream.dts;
  }

  void Push(Stream& stream, uint16_t identifier) {
    Waiting waiting{std::exchange(stream.picture, {}), {}, stream.packets};
    const Codec codec = stream.live->codec();
    waiting.cut = CutPicture(codec, waiting.picture);
    const CountedPictures counted = CountPictures(codec, waiting.cut.given());
    if (counted.pictures < 1 || counted.pictures > MostPictures(codec)) {
      const char* const why =
          counted.pictures < 1 ? "a PES packet holds no slices" : "PES packets hold several";
      return Pass(stream, identifier, waiting.packets, why, static_cast<uint64_t>(counted.pictures));
    }
    stream.live->Push(waiting.cut.given(), stream.pts, stream.dts, counted.key, carrier_->at());
    stream.waiting.push_back(std::move(waiting));
    Send(stream, identifier);
  }

  void Pass(Stream& stream, uint16_t identifier, size_t packets, const std::string& why, uint64_t pictures) {
    stream.live->PassOn(why, pictures, carrier_->at());
    stream.waiting.push_back({{}, {}, packets});
    Send(stream, identifier);
  }

  void Send(Stream& stream, uint16_t identifier) {
    std::vector<ByteSpan> pieces;
    for (; !stream.waiting.empty(); stream.waiting.pop_front()) {
      const std::optional<LiveStream::Picture> picture = stream.live->Pull();
      if (!picture) return;
      const Waiting& waiting = stream.waiting.front();
      if (!picture->changed) {
        carrier_->Keep(identifier, waiting.packets);
        continue;
      }
      pieces.clear();
      for (const CutPicture::Part& part : waiting.cut.PartsOf(picture->data, work_.options.in)) {
        pieces.push_back(part.is);
        pieces.push_back(ByteSpan(waiting.picture).subspan(part.at + part.was.size(), part.rest));
      }
      carrier_->Replace(identifier, waiting.packets, pieces);
    }
  }

  std::vector<std::string> Summary() const {
    std::vector<std::string> lines;
    for (const Stream* const stream : order_) {
      for (std::string& line : stream->live->Summary()) lines.push_back(std::move(line));
    }
    if (carrier_->counts().putIn != 0)
      lines.push_back(fmt::format("{} packets put in, where the stream had no null packets for them",
                                  carrier_->counts().putIn));
    if (const uint64_t bytes = carrier_->counts().leftOut; bytes != 0)
      lines.push_back(fmt::format("warning: breaks off within a packet: {} bytes of it are left out", bytes));
    if (damaged_ != 0)
      lines.push_back(fmt::format("warning: {} packets are lost, cut off or damaged", damaged_));
    return lines;
  }

  const LiveWork& work_;
  std::map<uint16_t, Stream> streams_;  // by packet identifier
  std::vector<Stream*> order_;          // as the program maps name them
  std::optional<ts::Damage> damage_;
  uint64_t damaged_ = 0;
  uint64_t told_ = 0;  // behind the last place that was told, plus 1
  std::optional<ts::Carrier> carrier_;
};

}  // namespace

bool LooksLikeTransport(const LiveSource& source) { return ts::FindPacketForm(source).has_value(); }

std::vector<std::string> PatchLiveTransport(const LiveWork& work) {
  return LiveTransport(work, ReadLivePrograms(work.source)).Run();
}

}  // namespace qlnmedia
