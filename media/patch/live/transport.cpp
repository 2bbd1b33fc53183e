// Pictures out of PES packets as they end, into editors, and back into their packets.

#include "patch/live/transport.h"

#include <fmt/format.h>

#include <algorithm>
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
#include "patch/live/program_tables.h"
#include "patch/live/programs.h"
#include "patch/pes_pictures.h"

namespace qlnmedia {

namespace {

class LiveTransport {
 public:
  LiveTransport(const LiveWork& work, LivePrograms programs) : work_(work) {
    for (LiveProgramStream& one : programs.streams) {
      identifiers_.insert(one.identifier);
      Stream& stream = streams_[one.identifier];
      LiveCaptions* const captions = order_.empty() ? work.captions : nullptr;
      stream.live =
          std::make_unique<LiveStream>(one.index, std::move(one.stream), work.options, captions, work.report);
      order_.push_back(&stream);
    }
    damage_.emplace(identifiers_);
    for (const Stream* const stream : order_) {
      if (const std::string note = stream->live->OrderNote(); !note.empty()) work.report(note);
    }
    for (const uint16_t identifier : programs.without)
      work.report(
          fmt::format("{}: the stream of packet identifier {} has told no parameter sets so far: it "
                      "is passed on as it comes",
                      work.options.in, identifier));
    carrier_.emplace(work.source, &work.sink, identifiers_, [this](const ts::Row& row) { Watch(row); });
    carrier_->SendAtOnce();
  }

  std::vector<std::string> Run() {
    for (ts::PesView pes; carrier_->Next(pes);) {
      work_.progress(carrier_->at());
      work_.source.LetGo(carrier_->at());
      Take(pes);
    }
    for (auto& [identifier, stream] : streams_) {
      if (stream.live == nullptr) continue;
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
    std::unique_ptr<LiveStream> live;  // null where it has moved to another identifier
    bool foreign = false;              // the program map says that it is of another type
    Bytes picture;                     // that more may come of; empty where there is none
    size_t packets = 0;                // PES packets of it
    int64_t pts = kNoTime;
    int64_t dts = kNoTime;
    std::optional<int64_t> last;  // time stamp, as far as it was counted on
    std::deque<Waiting> waiting;  // those that its editor has
  };

  // A stream that moves is followed; what else changes is told, and passes as it comes.
  void WatchPrograms(const ts::Row& row) {
    using Kind = ProgramChange::Kind;
    for (const ProgramChange& change : programs_.Take(row)) {
      const bool coded = change.type == kAvcStreamType || change.type == kHevcStreamType;
      if (change.kind == Kind::kMoved && IsEdited(change.before)) {
        Move(change.before, change.identifier);
      } else if (change.kind == Kind::kNew && coded) {
        TellProgram(change.identifier, "is new: passed on as it comes");
      } else if (change.kind == Kind::kGone && IsEdited(change.identifier)) {
        TellProgram(change.identifier, "is no more there");
      } else if (change.kind == Kind::kRetyped && IsEdited(change.identifier)) {
        Retype(streams_[change.identifier], change);
      }
    }
  }

  bool IsEdited(uint16_t identifier) const {
    const auto found = streams_.find(identifier);
    return (found != streams_.end() && found->second.live != nullptr) || heirs_.count(identifier) != 0;
  }

  void TellProgram(uint16_t identifier, const std::string& what) const {
    work_.report(
        fmt::format("{}: near byte {}: the program map changes: the stream of packet identifier {} {}",
                    work_.options.in, carrier_->at(), identifier, what));
  }

  void Move(uint16_t from, uint16_t to) {
    TellProgram(from, fmt::format("goes on as {}", to));
    // A stream of that identifier that was gone goes on itself.
    if (IsEdited(to)) return;
    carrier_->Move(from, to);
    identifiers_.insert(to);
    damage_.emplace(identifiers_);
    // It may have moved before anything of it came there.
    const auto pending = heirs_.find(from);
    const uint16_t origin = pending == heirs_.end() ? from : pending->second;
    heirs_.erase(from);
    if (origin != to) heirs_[to] = origin;
  }

  void Retype(Stream& stream, const ProgramChange& change) {
    const auto codec = change.type == kAvcStreamType ? Codec::kH264 : Codec::kHevc;
    const bool coded = change.type == kAvcStreamType || change.type == kHevcStreamType;
    stream.foreign = !coded || stream.live == nullptr || codec != stream.live->codec();
    TellProgram(change.identifier,
                stream.foreign ? "is of another type: passed on as it comes" : "is of its own type again");
  }

  // The first PES packet under a new identifier: the stream's numbers go on, and what waited goes out.
  void Inherit(uint16_t to, uint16_t from) {
    Stream& old = streams_.at(from);
    if (!old.picture.empty()) Push(old, from);
    old.live->Break();
    Send(old, from);
    Stream& heir = streams_[to];
    heir.live = std::move(old.live);
    heir.last = old.last;
    heir.foreign = false;
    std::replace(order_.begin(), order_.end(), &old, &heir);
  }

  // Packets that are lost or marked; each kind of place is told once in a while.
  void Watch(const ts::Row& row) {
    if (carrier_) WatchPrograms(row);
    damage_->Take(row);
    std::optional<uint16_t> found = damage_->TakeFound();
    if (!found && BeginsNoPes(row)) found = row.identifier();
    if (!found && row.isPacket) return;
    ++damaged_;
    constexpr uint64_t kApart = 1 << 20;
    const uint64_t at = carrier_ ? carrier_->at() : 0;
    if (told_ != 0 && at < told_ + kApart) return;
    told_ = at + 1;
    const std::string what =
        found ? fmt::format("a packet of identifier {} is lost, cut off or damaged", *found)
              : std::string("bytes that are no packets");
    work_.report(fmt::format("{}: near byte {}: {}: passed on as it came", work_.options.in, at, what));
  }

  // A PES packet that is to be edited without its first bytes.
  bool BeginsNoPes(const ts::Row& row) const {
    if (!row.isPacket || !row.startsUnit() || !row.hasPayload() || row.scrambled()) return false;
    if (identifiers_.count(row.identifier()) == 0) return false;
    constexpr uint8_t kPrefix[] = {0, 0, 1};
    const ts::ByteSpan payload = row.payload();
    return payload.size() < sizeof kPrefix || !std::equal(kPrefix, kPrefix + sizeof kPrefix, payload.begin());
  }

  // What begins no picture goes on with the one before, if it has no time of its own.
  void Take(ts::PesView& pes) {
    const auto heir = heirs_.find(pes.identifier);
    if (heir != heirs_.end()) {
      const uint16_t from = heir->second;
      heirs_.erase(heir);
      Inherit(pes.identifier, from);
    }
    Stream& stream = streams_[pes.identifier];
    if (stream.live == nullptr) return carrier_->Keep(pes.identifier, 1);
    if (stream.foreign) {
      if (!stream.picture.empty()) Push(stream, pes.identifier);
      return Pass(stream, pes.identifier, 1, "the program map says that it is of another type", 0);
    }
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
  std::set<uint16_t> identifiers_;      // of all that are edited, or were
  std::map<uint16_t, Stream> streams_;  // by packet identifier
  ProgramWatch programs_;
  std::map<uint16_t, uint16_t> heirs_;  // streams that are to go on, by their new identifier: the old one
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
