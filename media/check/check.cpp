// Holds what container, configuration record and stream say against each other.

#include "check/check.h"

#include <fmt/format.h>

#include <cmath>
#include <map>
#include <memory>
#include <optional>

#include "base/error.h"
#include "check/captions.h"
#include "check/unit_order.h"
#include "container/coded_stream.h"
#include "container/file_captions.h"
#include "container/hdr_side_data.h"
#include "container/media_file.h"
#include "container/raw_end.h"
#include "hdr/values.h"
#include "sets/names.h"
#include "sets/sps_facts.h"
#include "units/access_unit.h"

namespace qlnmedia {

namespace {

// profile_idc of H.264.
constexpr uint8_t kBaseline = 66;
constexpr uint8_t kExtended = 88;

// Values differ, and both sides say something.
bool Differ(int container, int stream) { return container != 2 && stream != 2 && container != stream; }

class StreamChecker {
 public:
  StreamChecker(const MediaFile& file, unsigned index, Codec codec, std::vector<Finding>& findings)
      : file_(file), index_(index), codec_(codec), findings_(findings) {
    const AVCodecParameters& parameters = *file.context()->streams[index]->codecpar;
    if (parameters.extradata_size > 0)
      config_ = ReadConfigRecord(
          codec, ByteSpan(parameters.extradata, static_cast<size_t>(parameters.extradata_size)));
    config_.codec = codec;
    if (!config_.problem.empty()) Add("damage", config_.problem, -1);
    place_ = codec == Codec::kH264 ? "the avcC" : "the hvcC";
    if (config_.box) {
      for (const Bytes& unit : config_.units()) CheckSet(unit, -1);
      CheckHead();
    }
  }

  void Packet(const AVPacket& packet) {
    const UnitRun run = TakeApart(ByteSpan(packet.data, static_cast<size_t>(packet.size)), config_.framing);
    if (run.damaged()) Add("damage", "a length leads past the end of its frame", frames_);
    for (const Unit& unit : run.units) CheckSet(unit.bytes, frames_);
    for (std::string& text : OrderFindings(codec_, run.units, rules_)) Add("order", std::move(text), frames_);
    CheckHdr(run.units);
    ++frames_;
  }

  void Finish() {
    if (containerHdr_.mastering && !mastering_)
      Add("hdr", "the container has a mastering display, the stream has none", -1);
    if (containerHdr_.lightLevel && !lightLevel_)
      Add("hdr", "the container has a content light level, the stream has none", -1);
  }

  void LookAtContainerHdr() { containerHdr_ = ContainerHdr(*file_.context()->streams[index_]); }

 private:
  void Add(const char* what, std::string text, int64_t frame) {
    for (Finding& finding : findings_) {
      if (finding.stream == index_ && finding.what == what && finding.text == text) {
        ++finding.count;
        return;
      }
    }
    findings_.push_back({index_, what, std::move(text), frame, 1});
  }

  // Kind and id of a set; nothing for one too short to have an id.
  std::optional<std::pair<int, uint32_t>> KeyOf(const Bytes& unit) const {
    const int type = UnitType(codec_, unit);
    if (IsSps(codec_, type)) {
      const std::optional<SpsFacts> summary = ReadSpsFacts(codec_, unit);
      if (!summary) return {};
      return std::pair{type, summary->id};
    }
    const size_t header = codec_ == Codec::kH264 ? 1 : 2;
    const Bytes payload = Unescape(ByteSpan(unit).subspan(std::min(header, unit.size())));
    if (payload.empty()) return {};
    if (type == 32) return std::pair{type, uint32_t{payload[0]} >> 4};
    // pic_parameter_set_id: a code number of few bits.
    uint32_t bits = 0;
    for (size_t i = 0; i < 4; ++i) bits = bits << 8 | (i < payload.size() ? payload[i] : 0);
    int zeros = 0;
    while (zeros < 9 && (bits >> (31 - zeros) & 1) == 0) ++zeros;
    if (zeros == 9) return {};
    return std::pair{type, (bits >> (31 - 2 * zeros)) - 1};
  }

  uint32_t MostId(int type) const {
    if (IsSps(codec_, type)) return codec_ == Codec::kH264 ? 31 : 15;
    if (type == 32) return 15;
    return codec_ == Codec::kH264 ? 255 : 63;
  }

  // Takes any unit; those of higher layers have a syntax of their own and are not looked at.
  void CheckSet(const Bytes& whole, int64_t frame) {
    if (!IsParameterSet(codec_, UnitType(codec_, whole)) || !IsBaseLayer(codec_, whole)) return;
    Bytes unit = whole;
    while (!unit.empty() && unit.back() == 0) unit.pop_back();  // zero bytes behind a set say nothing
    const auto key = KeyOf(unit);
    const std::string name = UnitTypeName(codec_, UnitType(codec_, unit));
    if (!key || key->second > MostId(key->first)) {
      Add("damage", name + (key ? " has an id that does not exist" : " breaks off"), frame);
      return;
    }
    const auto known = sets_.find(*key);
    if (known != sets_.end() && known->second.bytes == unit) return;
    if (known != sets_.end()) {
      Add("sets",
          fmt::format("{} {} of the stream differs from the one {}", name, key->second,
                      known->second.frame < 0 ? "in " + place_ : "before it"),
          frame);
    }
    sets_[*key] = {unit, frame};
    if (!IsSps(codec_, key->first)) return;
    const SpsFacts sps = *ReadSpsFacts(codec_, unit);
    rules_.twoFields =
        rules_.twoFields || (codec_ == Codec::kH264 ? !sps.h264.frameMbsOnly : sps.hevc.interlace[2]);
    rules_.anySliceOrder =
        rules_.anySliceOrder || (codec_ == Codec::kH264 && (unit[1] == kBaseline || unit[1] == kExtended));
    CheckSps(sps, frame);
  }

  void CheckSps(const SpsFacts& sps, int64_t frame) {
    const std::string where = frame < 0 ? place_ : "the stream";
    const ContainerColour& container = file_.containerColour(index_);
    const bool described = !file_.isRawStream() && file_.formatName() != "mpegts";
    if (described && sps.colour) {
      if (Differ(container.primaries, sps.colour->primaries))
        Add("colour",
            fmt::format("primaries: the container says {}, {} {}",
                        ColourPrimariesName(static_cast<uint32_t>(container.primaries)), where,
                        ColourPrimariesName(sps.colour->primaries)),
            frame);
      if (Differ(container.transfer, sps.colour->transfer))
        Add("colour",
            fmt::format("transfer: the container says {}, {} {}",
                        TransferName(static_cast<uint32_t>(container.transfer)), where,
                        TransferName(sps.colour->transfer)),
            frame);
      if (Differ(container.matrix, sps.colour->matrix))
        Add("colour",
            fmt::format("matrix: the container says {}, {} {}",
                        MatrixName(static_cast<uint32_t>(container.matrix)), where,
                        MatrixName(sps.colour->matrix)),
            frame);
    }
    if (described && sps.signalType && container.range != AVCOL_RANGE_UNSPECIFIED &&
        (container.range == AVCOL_RANGE_JPEG) != sps.fullRange)
      Add("range",
          fmt::format("the container says {} range, {} {}",
                      container.range == AVCOL_RANGE_JPEG ? "full" : "limited", where,
                      sps.fullRange ? "full" : "limited"),
          frame);
    if (described && container.width > 0 && container.height > 0 &&
        (container.width != static_cast<int>(sps.width) || container.height != static_cast<int>(sps.height)))
      Add("size",
          fmt::format("the container says {} x {}, {} {} x {}", container.width, container.height, where,
                      sps.width, sps.height),
          frame);
    CheckRate(sps, where, frame);
    const bool interlacedContainer = container.fieldOrder > AV_FIELD_PROGRESSIVE;
    if (described && interlacedContainer &&
        (codec_ == Codec::kH264 ? sps.h264.frameMbsOnly && !sps.h264.picStruct
                                : !sps.hevc.interlace[2] && sps.hevc.interlace[0] && !sps.hevc.interlace[1]))
      Add("interlace", fmt::format("the container says fields, {} progressive frames", where), frame);
    if (described && container.fieldOrder == AV_FIELD_PROGRESSIVE && codec_ == Codec::kHevc &&
        sps.hevc.interlace[2])
      Add("interlace", fmt::format("the container says progressive, {} fields", where), frame);
  }

  void CheckRate(const SpsFacts& sps, const std::string& where, int64_t frame) {
    const AVStream& stream = *file_.context()->streams[index_];
    const AVRational rate = stream.avg_frame_rate;
    if (file_.isRawStream() || file_.formatName() == "mpegts" || rate.num <= 0 || rate.den <= 0) return;
    if (sps.numUnitsInTick == 0 || sps.timeScale == 0) return;
    const double said =
        static_cast<double>(sps.timeScale) / sps.numUnitsInTick / (codec_ == Codec::kH264 ? 2 : 1);
    // Containers average, and single pictures may be left out: only a rate that neither the average nor the
    // distances between pictures show counts.
    const auto shows = [said](AVRational is) {
      return is.num > 0 && is.den > 0 && std::abs(said - av_q2d(is)) <= 0.02 * av_q2d(is);
    };
    if (!shows(rate) && !shows(stream.r_frame_rate))
      Add("rate",
          fmt::format("the container runs at {:.5g} frames a second, {} says {:.5g}", av_q2d(rate), where,
                      said),
          frame);
  }

  // The head of the box against its first SPS.
  void CheckHead() {
    for (const Bytes& unit : config_.units()) {
      if (!IsSps(codec_, UnitType(codec_, unit))) continue;
      if (codec_ == Codec::kH264 && unit.size() >= 4 && config_.head.size() >= 4) {
        if (config_.head[1] != unit[1])
          Add("sets", fmt::format("the avcC says profile {}, its SPS {}", config_.head[1], unit[1]), -1);
        if (config_.head[3] != unit[3])
          Add("sets", fmt::format("the avcC says level_idc {}, its SPS {}", config_.head[3], unit[3]), -1);
      } else if (codec_ == Codec::kHevc && config_.head.size() >= 13) {
        const Bytes set = Unescape(unit);
        if (set.size() < 15) return;
        if ((config_.head[1] & 31) != (set[3] & 31))
          Add("sets", fmt::format("the hvcC says profile {}, its SPS {}", config_.head[1] & 31, set[3] & 31),
              -1);
        if (config_.head[12] < set[14])
          Add("sets", fmt::format("the hvcC says level_idc {}, its SPS {}", config_.head[12], set[14]), -1);
      }
      return;
    }
  }

  void CheckHdr(const std::vector<Unit>& units) {
    const StreamHdr hdr = HdrOf(codec_, units);
    if (hdr.mastering) {
      if (mastering_ && !(*mastering_ == *hdr.mastering))
        Add("hdr", "the mastering display changes within the stream", frames_);
      if (containerHdr_.mastering && !(*containerHdr_.mastering == *hdr.mastering))
        Add("hdr",
            fmt::format("mastering display: the container says {}, the stream {}",
                        MasteringDisplayText(*containerHdr_.mastering), MasteringDisplayText(*hdr.mastering)),
            frames_);
      mastering_ = hdr.mastering;
    }
    if (hdr.lightLevel) {
      if (containerHdr_.lightLevel && !(*containerHdr_.lightLevel == *hdr.lightLevel))
        Add("hdr",
            fmt::format("content light level: the container says {},{}, the stream {},{}",
                        containerHdr_.lightLevel->maxContent, containerHdr_.lightLevel->maxAverage,
                        hdr.lightLevel->maxContent, hdr.lightLevel->maxAverage),
            frames_);
      lightLevel_ = hdr.lightLevel;
    }
  }

  struct KnownSet {
    Bytes bytes;
    int64_t frame;
  };

  const MediaFile& file_;
  unsigned index_;
  Codec codec_;
  std::vector<Finding>& findings_;
  ConfigRecord config_;
  std::string place_;
  std::map<std::pair<int, uint32_t>, KnownSet> sets_;
  OrderRules rules_;
  StreamHdr containerHdr_;
  std::optional<MasteringDisplay> mastering_;
  std::optional<LightLevel> lightLevel_;
  int64_t frames_ = 0;
};

}  // namespace

std::vector<Finding> CheckFile(const std::string& path, const ProgressCallback& progress) {
  MediaFile file(path);
  file.RequireVideo();
  std::vector<Finding> findings;
  std::vector<std::unique_ptr<StreamChecker>> checkers(file.context()->nb_streams);
  bool found = false;
  for (unsigned i = 0; i < checkers.size(); ++i) {
    const AVStream& stream = *file.context()->streams[i];
    found = found || MayHaveCaptions(stream);
    const std::optional<Codec> codec = CodecOf(stream);
    if (!codec) continue;
    checkers[i] = std::make_unique<StreamChecker>(file, i, *codec, findings);
    checkers[i]->LookAtContainerHdr();
  }
  if (!found) throw Error(path, "has no H.264, HEVC or MPEG-2 stream");
  const PacketHandle packet(av_packet_alloc());
  if (packet == nullptr) throw std::bad_alloc();
  Progress meter(progress, "checking", file.sizeBytes());
  while (file.Read(packet.get())) {
    meter.At(packet->pos);
    const auto index = static_cast<unsigned>(packet->stream_index);
    if (index < checkers.size() && checkers[index] != nullptr) checkers[index]->Packet(*packet);
  }
  meter.Done();
  for (const auto& checker : checkers) {
    if (checker != nullptr) checker->Finish();
  }
  CheckCaptions(path, findings, progress);
  const std::string note = EndNote(file);
  if (!note.empty()) findings.push_back({0, "damage", note, -1, 1});
  return findings;
}

}  // namespace qlnmedia
