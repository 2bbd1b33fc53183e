// Words what sets, messages and the container say of the pictures of a stream.

#include "inspect/picture_summary.h"

#include <fmt/format.h>

#include <algorithm>
#include <numeric>

#include "hdr/stream_hdr.h"
#include "inspect/hdr_summary.h"
#include "inspect/scan_facts.h"
#include "inspect/sps_section.h"
#include "inspect/timecode.h"
#include "pictures/picture_tracker.h"
#include "sets/names.h"

namespace qlnmedia {

namespace {

std::string Joined(std::initializer_list<std::string> pieces) {
  std::string text;
  for (const std::string& piece : pieces) {
    if (!piece.empty()) text += (text.empty() ? "" : ", ") + piece;
  }
  return text;
}

std::string TagText(uint32_t tag) {
  std::string text;
  for (int shift = 0; shift < 32; shift += 8) {
    const auto c = static_cast<char>(tag >> shift & 0xFF);
    if (c < 0x20 || c > 0x7E) return {};
    text += c;
  }
  return text;
}

// The set that the first pictures are read by, of those in the private data and in the packets.
struct ActiveSps {
  Bytes unit;
  SpsFacts facts;
};

std::optional<ActiveSps> FirstSps(const CodedStream& stream) {
  PictureTracker tracker(stream.codec);
  std::vector<Bytes> sets;
  const auto take = [&](const Bytes& unit) {
    if (IsSps(stream.codec, UnitType(stream.codec, unit)) && IsBaseLayer(stream.codec, unit))
      sets.push_back(unit);
  };
  for (const Bytes& unit : stream.config.units()) {
    tracker.TakeSet(unit);
    take(unit);
  }
  std::optional<SpsFacts> active;
  for (const CodedPacket& packet : stream.packets) {
    const UnitRun run = TakeApart(packet.data, stream.config.framing);
    for (const Unit& unit : run.units) take(unit.bytes);
    const std::vector<CodedPicture> pictures = tracker.Take(run.units);
    const CodedPicture* const first = FirstPlaced(pictures);
    if (first == nullptr) continue;
    active = *first->head->sps;
    break;
  }
  for (const Bytes& unit : sets) {
    const std::optional<SpsFacts> facts = ReadSpsFacts(stream.codec, unit);
    if (facts && (!active || *facts == *active)) return ActiveSps{unit, *facts};
  }
  return {};
}

// "16:9" where both terms are small, else the ratio in figures.
std::string AspectText(uint64_t width, uint64_t height) {
  if (width <= 100 && height <= 100) return fmt::format("{}:{}", width, height);
  return fmt::format("{:.4g}:1", static_cast<double>(width) / static_cast<double>(height));
}

Json AspectJson(uint64_t width, uint64_t height) {
  if (width == 0 || height == 0) return nullptr;
  return Json{{"width", width}, {"height", height}};
}

class PictureLines {
 public:
  PictureLines(Section& section, const PictureSource& source)
      : section_(section), source_(source), stream_(source.stream) {
    if (source.coded == nullptr) return;
    if (std::optional<ActiveSps> sps = FirstSps(*source.coded)) {
      profile_ = ProfileOf(source.coded->codec, sps->unit);
      sps_ = std::move(sps->facts);
    }
    for (const std::vector<CodedPacket>* packets : {&source.coded->packets, &source.coded->more}) {
      for (const CodedPacket& packet : *packets)
        hdr_.Take(source.coded->codec, TakeApart(packet.data, source.coded->config.framing).units);
    }
  }

  void AddCodec() {
    std::string profile = profile_.profile;
    std::string level = profile_.level;
    if (source_.mpeg2 != nullptr) {
      profile = source_.mpeg2->profile;
      level = source_.mpeg2->level;
    }
    if (profile.empty()) profile = stream_.profile;
    section_.AddValue("profile", TextOrNull(profile));
    section_.AddValue("level", TextOrNull(level));
    if (!profile_.tier.empty()) section_.AddValue("tier", profile_.tier);
    section_.AddLine("Codec", Joined({CodecText(), profile.empty() ? "" : profile + " profile",
                                      level.empty() ? "" : "level " + level,
                                      profile_.tier.empty() ? "" : profile_.tier + " tier",
                                      source_.file.isIso() ? TagText(stream_.tag) : ""}));
  }

  void AddPicture() {
    const uint64_t width = sps_ ? sps_->width : static_cast<uint64_t>(std::max(stream_.width, 0));
    const uint64_t height = sps_ ? sps_->height : static_cast<uint64_t>(std::max(stream_.height, 0));
    const auto [sampleWidth, sampleHeight] = SampleShape();
    const bool known = sampleWidth != 0 && sampleHeight != 0;
    uint64_t across = width * (known ? sampleWidth : 1);
    uint64_t down = height * (known ? sampleHeight : 1);
    if (const uint64_t common = std::gcd(across, down); common != 0) {
      across /= common;
      down /= common;
    }
    section_.AddValue("width", width);
    section_.AddValue("height", height);
    section_.AddValue("sample_aspect_ratio", AspectJson(sampleWidth, sampleHeight));
    section_.AddValue("display_aspect_ratio", AspectJson(across, down));
    std::string chroma = sps_ ? ChromaFormatName(sps_->chromaFormat) : stream_.pictures.chroma;
    const uint32_t depth = sps_ ? sps_->bitDepthLuma : static_cast<uint32_t>(stream_.pictures.depth);
    section_.AddValue("chroma_format", TextOrNull(chroma));
    section_.AddValue("bit_depth", depth == 0 ? Json(nullptr) : Json(depth));
    section_.AddLine("Picture", Joined({fmt::format("{}x{}", width, height),
                                        down == 0 ? "" : fmt::format("display {}", AspectText(across, down)),
                                        known ? fmt::format("samples {}:{}", sampleWidth, sampleHeight)
                                              : "sample shape unspecified",
                                        chroma, depth == 0 ? "" : fmt::format("{} bit", depth),
                                        stream_.rotation && *stream_.rotation != 0
                                            ? fmt::format("turned by {:g} degrees", *stream_.rotation)
                                            : ""}));
  }

  void AddScan() {
    scan_ = source_.coded != nullptr                                        ? ScanOf(*source_.coded)
            : source_.mpeg2 != nullptr && !source_.mpeg2->scan.type.empty() ? source_.mpeg2->scan
                                                                            : ScanFacts();
    if (scan_.type.empty()) {
      const std::string coding = scan_.coding;
      scan_ = ScanOf(stream_.fieldOrder);
      scan_.coding = coding;
    }
    section_.AddValue("scan", TextOrNull(scan_.type));
    section_.AddValue("scan_coding", TextOrNull(scan_.coding));
    section_.AddValue("field_order", TextOrNull(scan_.fieldOrder));
    const std::string text = ScanText(scan_);
    section_.AddLine("Scan", text.empty() ? "not told" : text);
  }

  void AddRate() {
    const auto [numerator, denominator, mode, about] = RateFacts();
    const bool known = numerator != 0 && denominator != 0;
    section_.AddValue("frame_rate",
                      known ? Json{{"numerator", numerator}, {"denominator", denominator}} : Json());
    section_.AddValue("frame_rate_mode", TextOrNull(mode));
    if (!known) return section_.AddLine("Rate", "not told");
    const bool fields = sps_ && source_.coded->codec == Codec::kHevc && sps_->hevc.interlace[2];
    const char* const what = fields ? "fields" : "frames";
    const std::string rate =
        mode == "variable"
            ? fmt::format("{:.5g} {} a second on average",
                          static_cast<double>(numerator) / static_cast<double>(denominator), what)
            : fmt::format("{} {} a second", RateText(numerator, denominator), what);
    section_.AddLine("Rate", Joined({rate, mode.empty() ? "" : mode + about}));
  }

  void AddColour() {
    ColourCodes codes = stream_.colour;
    std::string range = stream_.range == kRangeUnknown ? ""
                        : stream_.range == kFullRange  ? "full"
                                                       : "limited";
    if (sps_ && sps_->colour) codes = *sps_->colour;
    if (sps_ && sps_->signalType) range = sps_->fullRange ? "full" : "limited";
    const auto name = [](uint32_t code, std::string (*named)(uint32_t)) {
      constexpr uint32_t kUnspecified = 2;
      return code == kUnspecified ? std::string() : named(code);
    };
    const std::string primaries = name(codes.primaries, ColourPrimariesName);
    const std::string transfer = name(codes.transfer, TransferName);
    const std::string matrix =
        codes.matrix == 0 && codes.primaries == 2 && codes.transfer == 2 && stream_.pictures.chroma != "RGB"
            ? std::string()
            : name(codes.matrix, MatrixName);
    transfer_ = codes.transfer;
    primaries_ = codes.primaries;
    section_.AddValue("colour_primaries", TextOrNull(primaries));
    section_.AddValue("transfer_characteristics", TextOrNull(transfer));
    section_.AddValue("matrix_coefficients", TextOrNull(matrix));
    section_.AddValue("range", TextOrNull(range));
    const std::string all = primaries.empty() && transfer.empty() && matrix.empty() ? "not told"
                            : primaries == transfer && transfer == matrix
                                ? primaries
                                : Joined({"primaries " + (primaries.empty() ? "not told" : primaries),
                                          "transfer " + (transfer.empty() ? "not told" : transfer),
                                          "matrix " + (matrix.empty() ? "not told" : matrix)});
    section_.AddLine("Colour", Joined({all, range.empty() ? "range not told" : range + " range"}));
  }

  void AddHdrLine() { AddHdrSummary(section_, stream_, hdr_, primaries_, transfer_); }

  void AddTimecode() {
    Json list = Json::array();
    std::string text;
    const auto add = [&](const char* source, const char* word, const std::string& value) {
      list.push_back({{"source", source}, {"value", value}});
      text += fmt::format("{}{} ({})", text.empty() ? "" : ", ", value, word);
    };
    if (source_.coded != nullptr) {
      if (const std::optional<ClockTime> first = StreamTimecodes(*source_.coded).first())
        add("sei", "SEI", first->Text());
    }
    if (source_.mpeg2 != nullptr && source_.mpeg2->timecode)
      add("group_of_pictures", "group of pictures", source_.mpeg2->timecode->Text());
    for (const Tag& tag : AllTags()) {
      std::string name = tag.name;
      std::transform(name.begin(), name.end(), name.begin(), [](unsigned char c) { return std::tolower(c); });
      if (name != "timecode") continue;
      add(source_.file.isIso() ? "track" : "container", source_.file.isIso() ? "track" : "container",
          tag.text);
      break;
    }
    section_.AddValue("timecode", list);
    if (!text.empty()) section_.AddLine("Timecode", text);
  }

  void AddCaptionLine() {
    Json names = Json::array();
    const bool found = source_.captions != nullptr && source_.captions->found;
    if (found) {
      for (const CaptionService& service : source_.captions->services) names.push_back(service.name);
    }
    section_.AddValue("captions", found ? names : Json());
    if (found)
      section_.AddLine("Captions",
                       names.empty() ? "nothing but padding" : NamesOf(source_.captions->services));
  }

 private:
  std::string CodecText() const {
    if (stream_.codecName == "h264") return "H.264";
    if (stream_.codecName == "hevc") return "HEVC";
    if (stream_.codecName == "mpeg2video") return "MPEG-2";
    return stream_.codecName;
  }

  // What the container says, else the stream.
  std::pair<uint64_t, uint64_t> SampleShape() const {
    const auto take = [](Rational ratio) {
      const auto common = static_cast<uint64_t>(std::gcd(ratio.numerator, ratio.denominator));
      return std::pair<uint64_t, uint64_t>(static_cast<uint64_t>(ratio.numerator) / common,
                                           static_cast<uint64_t>(ratio.denominator) / common);
    };
    const auto told = [](Rational ratio) { return ratio.numerator > 0 && ratio.denominator > 0; };
    if (told(stream_.sampleAspect)) return take(stream_.sampleAspect);
    if (sps_) {
      const SampleAspect aspect = SampleAspectOf(*sps_);
      if (aspect.width == 0 || aspect.height == 0) return {};
      return take({static_cast<int32_t>(aspect.width), static_cast<int32_t>(aspect.height)});
    }
    return told(stream_.codedAspect) ? take(stream_.codedAspect) : std::pair<uint64_t, uint64_t>{};
  }

  struct Rate {
    uint64_t numerator = 0;
    uint64_t denominator = 1;
    std::string mode;   // "constant", "variable", or nothing where it is not known
    std::string about;  // of which pictures it is said
  };

  // Raw H.264 and HEVC have no times: what their sets say.
  Rate RawRate() const {
    Rate rate;
    if (!sps_ || !sps_->timing || sps_->timeScale == 0 || sps_->numUnitsInTick == 0) return rate;
    const bool h264 = source_.coded->codec == Codec::kH264;
    const uint64_t denominator = uint64_t{sps_->numUnitsInTick} * (h264 ? 2 : 1);
    const uint64_t common = std::gcd<uint64_t>(sps_->timeScale, denominator);
    rate.numerator = sps_->timeScale / common;
    rate.denominator = denominator / common;
    if (h264 && sps_->h264.fixedFrameRate) rate.mode = "constant";
    return rate;
  }

  Rate RateFacts() const {
    if (source_.file.isRawStream() && source_.coded != nullptr) return RawRate();
    Rate rate;
    const Rational average = stream_.coded.averageRate;
    if (average.numerator <= 0 || average.denominator <= 0) return rate;
    const Rational reduced =
        Reduced(static_cast<uint64_t>(average.numerator), static_cast<uint64_t>(average.denominator));
    rate.numerator = static_cast<uint64_t>(reduced.numerator);
    rate.denominator = static_cast<uint64_t>(reduced.denominator);
    const SamplePace indexed = source_.file.IndexedPace(stream_.index);
    if (indexed.samples > 1) {
      rate.mode = indexed.steady ? "constant" : "variable";
      const int64_t frames = source_.file.isFragmented() ? indexed.samples : 0;
      if (frames != 0) rate.about = fmt::format(" in the first {} pictures", frames);
      if (!indexed.steady || frames == 0) return rate;
    }
    const StreamCaptions* const seen = source_.captions;
    if (seen == nullptr || !seen->steadyPace) return rate;
    rate.mode = *seen->steadyPace ? "constant" : "variable";
    // Readers of other containers guess an average from the shortest distances.
    if (!*seen->steadyPace && seen->averageRate.numerator > 0 && !source_.file.isIso()) {
      rate.numerator = static_cast<uint64_t>(seen->averageRate.numerator);
      rate.denominator = static_cast<uint64_t>(seen->averageRate.denominator);
    }
    rate.about = fmt::format(" in the first {} pictures", seen->pictures);
    return rate;
  }

  std::vector<Tag> AllTags() const {
    std::vector<Tag> tags = stream_.tags;
    const std::vector<Tag> ofFile = source_.file.tags();
    tags.insert(tags.end(), ofFile.begin(), ofFile.end());
    return tags;
  }

  Section& section_;
  const PictureSource& source_;
  const MediaStream& stream_;
  SetProfile profile_;
  std::optional<SpsFacts> sps_;
  ScanFacts scan_;
  HdrSeen hdr_;
  uint32_t transfer_ = 2;
  uint32_t primaries_ = 2;
};

}  // namespace

void AddPictureSummary(Section& section, const PictureSource& source) {
  PictureLines lines(section, source);
  lines.AddCodec();
  lines.AddPicture();
  lines.AddScan();
  lines.AddRate();
  lines.AddColour();
  lines.AddHdrLine();
  lines.AddTimecode();
  lines.AddCaptionLine();
}

}  // namespace qlnmedia
