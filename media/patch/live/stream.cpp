// Makes editors, watches them, and makes others.

#include "patch/live/stream.h"

#include <fmt/format.h>

#include <algorithm>

#include "base/error.h"
#include "captions/reader.h"
#include "patch/edited_streams.h"
#include "pictures/reorder_depth.h"
#include "timing/timecode.h"
#include "timing/timecode_rate.h"
#include "units/access_unit.h"
#include "units/coded_stream.h"
#include "units/packet_units.h"

namespace qlnmedia {

namespace {

// Of a set among its kind; nothing for other units, and those that break off.
std::optional<uint32_t> NumberOfSet(Codec codec, ByteSpan unit) {
  const int type = UnitType(codec, unit);
  if (IsSps(codec, type)) {
    const std::optional<SpsFacts> sps = ReadSpsFacts(codec, unit);
    return sps ? std::optional<uint32_t>(sps->id) : std::nullopt;
  }
  if (type == (codec == Codec::kH264 ? h264::kPps : hevc::kPps)) {
    const std::optional<PpsFacts> pps = ReadPpsFacts(codec, unit);
    return pps ? std::optional<uint32_t>(pps->id) : std::nullopt;
  }
  if (codec == Codec::kHevc && type == hevc::kVps && unit.size() > 2) return unit[2] >> 4;
  return {};
}

// The order in which sets are needed: HEVC VPS, SPS, PPS; H.264 SPS, PPS.
void AppendSet(Bytes& out, ByteSpan unit) {
  out.insert(out.end(), {0, 0, 0, 1});
  out.insert(out.end(), unit.begin(), unit.end());
}

bool IsPlaced(const CodedPicture& picture) { return picture.head.has_value(); }

// Of a slice less than the shortest head is there.
bool BreaksOff(Codec codec, const Unit& unit) {
  constexpr size_t kLeast = 2;
  return IsSlice(codec, UnitType(codec, unit.bytes)) && unit.bytes.size() < UnitHeaderBytes(codec) + kLeast;
}

}  // namespace

bool IsKeyPicture(Codec codec, ByteSpan data, Framing framing) {
  return IsRandomAccess(codec, TakeApartHeads(codec, data, framing).units);
}

LiveStream::LiveStream(unsigned index, StreamDescription description, const PatchOptions& options,
                       LiveCaptions* captions, LiveReport report)
    : index_(index),
      description_(std::move(description)),
      options_(options),
      captions_(captions),
      given_(captions),
      report_(std::move(report)),
      where_(fmt::format("{}: stream {}", options.in, index)),
      codec_(*UnitCodecOf(description_.codec)),
      tracker_(codec_) {
  const ConfigRecord config = ConfigOf(description_);
  framing_ = config.framing;
  for (const Bytes& unit : config.units()) {
    // Sets of the stream itself count from where they stand.
    if (description_.ownMarks) tracker_.TakeSet(unit);
    if (const std::optional<uint32_t> depth = DeclaredReorder(codec_, unit)) reorder_ = depth;
    const std::optional<SpsFacts> sps =
        IsSps(codec_, UnitType(codec_, unit)) ? ReadSpsFacts(codec_, unit) : std::nullopt;
    if (sps && codec_ == Codec::kHevc) fields_ = sps->hevc.interlace[2];
  }
  if (captions_ != nullptr) captions_->SpreadOver(description_, options_.in, index_, options_.rate);
  MakeEditor();
  privateData_ = editor_->privateData();
  // Of a record beside the stream, and not of sets that come again in it.
  if (description_.ownMarks) counts_.privateSequenceSets = editor_->counts().privateSequenceSets;
}

// The timecode of the next picture, in the type that counts it.
std::string LiveStream::TimecodeOfNow() const {
  Rational rate;
  if (options_.timecodeType.empty() || !options_.rate.empty())
    rate = TimecodeRate(RatesOf(description_, codec_, ConfigOf(description_).units()), options_.rate);
  const TimecodeStart start = ParseTimecode(options_.timecode, options_.timecodeType, rate);
  const uint64_t frames = fields_ ? pictures_ / 2 : pictures_;
  constexpr uint64_t kMostCounted = UINT32_MAX;
  const auto count = static_cast<uint32_t>(std::min(start.count + frames, kMostCounted));
  const Bytes unit = MakeHevcTimecodeUnit(count, start.type);
  for (const SeiMessage& message : ReadSeiMessages(Codec::kHevc, unit)) {
    const std::vector<ClockTime> clocks = ReadTimeCode(message.payload);
    if (!clocks.empty()) return clocks.front().Text();
  }
  return options_.timecode;
}

void LiveStream::MakeEditor() {
  StreamDescription stream = description_;
  if (!description_.ownMarks && pictures_ != 0) {
    stream.privateData.clear();
    for (const auto& [key, unit] : sets_) AppendSet(stream.privateData, unit);
  }
  StreamChanges changes = options_;
  changes.reorder = reorder_;
  if (captions_ != nullptr) {
    changes.captionProvider = captions_->ProviderFrom(static_cast<uint32_t>(pictures_));
    changes.replaceCaptions = options_.captions->replace;
  }
  if (!changes.timecode.empty() && pictures_ != 0) changes.timecode = TimecodeOfNow();
  editor_ = std::make_unique<StreamEditor>(stream, changes, nullptr, where_);
}

void LiveStream::TakeSets(const std::vector<Unit>& units) {
  for (const Unit& unit : units) {
    if (!IsParameterSet(codec_, UnitType(codec_, unit.bytes)) || !IsBaseLayer(codec_, unit.bytes)) continue;
    const std::optional<uint32_t> number = NumberOfSet(codec_, unit.bytes);
    if (number) sets_[{UnitType(codec_, unit.bytes), *number}] = unit.bytes;
  }
}

// A sequence may begin that reorders by more than the one in front of it.
bool LiveStream::ReordersMore(const std::vector<Unit>& units) {
  bool more = false;
  for (const Unit& unit : units) {
    const std::optional<uint32_t> depth = DeclaredReorder(codec_, unit.bytes);
    if (!depth || !reorder_ || *depth <= *reorder_) continue;
    reorder_ = depth;
    more = true;
  }
  return more && ordered();
}

void LiveStream::Push(Bytes data, int64_t pts, int64_t dts, bool key, uint64_t place) {
  const UnitRun run = TakeApartHeads(codec_, data, framing_);
  const std::vector<Unit>& units = run.units;
  const bool whole = !units.empty() && !run.damaged();
  TakeSets(units);
  const std::vector<CodedPicture> found = tracker_.Take(units);
  const bool told =
      whole && std::all_of(found.begin(), found.end(), IsPlaced) &&
      std::none_of(units.begin(), units.end(), [this](const Unit& unit) { return BreaksOff(codec_, unit); });
  auto frames =
      std::count_if(found.begin(), found.end(), [](const CodedPicture& one) { return !one.secondField; });
  // What cannot be told is a picture, too: the numbers of those behind it stay theirs.
  if (!whole && found.empty()) frames = 1;
  place_ = place;
  if (ReordersMore(units)) Break();
  if (MayEdit(data, told, key)) {
    ++outstanding_;
    try {
      if (editor_ == nullptr) MakeEditor();
      TellPassed();
      editor_->Push({std::move(data), pts, dts, key});
      Draw();
    } catch (const Error& error) {
      Fail(error);
    }
  }
  pictures_ += static_cast<uint64_t>(frames);
}

// Passes the access unit on where the editor is not to have it.
bool LiveStream::MayEdit(const Bytes& data, bool told, bool key) {
  if (!told) {
    if (ordered()) Break();
    Pass("its slices break off, or its parameter sets did not come");
    return false;
  }
  if (editor_ == nullptr && ordered() && !key) {
    Pass("its place in presentation order is not known");
    return false;
  }
  if (captions_ == nullptr || options_.captions->replace) return true;
  if (!CaptionsOf(description_.codec, data, framing_)) return true;
  if (!edited_) throw Error(where_, "has captions", "--replace-captions takes them out first");
  Break();
  Report("has captions of its own: from here on those stay; --replace-captions takes them out");
  captions_ = nullptr;
  if (!ordered() || key) return true;
  Pass("its place in presentation order is not known");
  return false;
}

void LiveStream::PassOn(const std::string& why, uint64_t pictures, uint64_t place) {
  place_ = place;
  if (ordered()) Break();
  Pass(why);
  pictures_ += pictures;
}

// What the editor has goes out as at the end of the stream.
void LiveStream::Break() {
  if (editor_ == nullptr) return;
  try {
    editor_->Finish();
    Draw();
  } catch (const Error& error) {
    Fail(error);
  }
  if (editor_ != nullptr) AddCounts(editor_->counts());
  editor_.reset();
}

void LiveStream::Draw() {
  while (std::optional<EditedUnit> unit = editor_->Pull()) {
    --outstanding_;
    edited_ = true;
    ready_.push_back({unit->changed, unit->changed ? std::move(unit->unit.data) : Bytes()});
  }
}

// Called while the failure is handled.
void LiveStream::Fail(const Error& error) {
  // Nothing has gone out yet, so that it is refused as a file would be.
  if (!edited_ && passed_ == 0 && pictures_ == 0) throw;
  if (editor_ != nullptr) AddCounts(editor_->counts());
  editor_.reset();
  const size_t waited = std::exchange(outstanding_, 0);
  const std::string others = waited > 1 ? fmt::format(", with {} that waited", waited - 1) : "";
  if (passed_ == 0) Report(error.problem() + ": passed on as it came" + others);
  passed_ += waited;
  ready_.resize(ready_.size() + waited);
}

void LiveStream::Pass(const std::string& why) {
  if (passed_++ == 0) Report(why + ": passed on as it came");
  ready_.emplace_back();
}

void LiveStream::Report(const std::string& what) const {
  report_(fmt::format("{}: picture {} at byte {}: {}", where_, pictures_, place_, what));
}

void LiveStream::TellPassed() {
  if (passed_ == 0) return;
  Report(fmt::format("taken up again; {} passed on as they came", passed_));
  passed_ = 0;
}

std::optional<LiveStream::Picture> LiveStream::Pull() {
  if (ready_.empty()) return {};
  Picture picture = std::move(ready_.front());
  ready_.pop_front();
  return picture;
}

void LiveStream::Finish() { Break(); }

void LiveStream::AddCounts(const EditCounts& counts) {
  counts_.sequenceSets += counts.sequenceSets;
  counts_.videoSets += counts.videoSets;
  counts_.unitsRemoved += counts.unitsRemoved;
  counts_.messagesRemoved += counts.messagesRemoved;
  counts_.hdrMessagesRemoved += counts.hdrMessagesRemoved;
  counts_.hdrUnits += counts.hdrUnits;
  counts_.timingsChanged += counts.timingsChanged;
  counts_.timingsAdded += counts.timingsAdded;
  counts_.delimiters += counts.delimiters;
  counts_.recoveryPoints += counts.recoveryPoints;
  counts_.intraWithoutRecovery += counts.intraWithoutRecovery;
  counts_.timecodes += counts.timecodes;
  counts_.captions += counts.captions;
  counts_.captionsRemoved += counts.captionsRemoved;
}

std::vector<std::string> LiveStream::Summary() const {
  std::vector<std::string> lines;
  if (options_.beyondCaptions())
    lines.push_back(fmt::format("stream {}: {}", index_,
                                TextOfCounts(counts_, codec_ == Codec::kH264 ? "avcC" : "hvcC", {})));
  if (given_ == nullptr) return lines;
  for (std::string& line : given_->Summary(counts_)) lines.push_back(std::move(line));
  return lines;
}

std::string LiveStream::OrderNote() const {
  if (!ordered()) return {};
  if (reorder_)
    return fmt::format(
        "{}: pictures wait until their place in presentation order is known; the stream declares a reorder "
        "depth of {}",
        where_, *reorder_);
  return fmt::format(
      "{}: pictures wait until their place in presentation order is known; the stream declares no reorder "
      "depth, so that is {} pictures",
      where_, StreamEditor::kMostWaiting);
}

}  // namespace qlnmedia
