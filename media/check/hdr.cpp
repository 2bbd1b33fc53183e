// Compares mastering display and light level, container against stream and frame against frame, and judges
// them by transfer characteristics and by each other.

#include "check/hdr.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "check/colour_codes.h"
#include "hdr/base_layer.h"
#include "hdr/values.h"
#include "sets/names.h"
#include "units/access_unit.h"

namespace qlnmedia {

namespace {

constexpr int kAlternativeTransfer = 147;  // SEI

bool NamesOtherTransfer(Codec codec, const std::vector<Unit>& units) {
  for (const Unit& unit : units) {
    if (!IsSei(codec, UnitType(codec, unit.bytes))) continue;
    for (const SeiMessage& message : ReadSeiMessages(codec, unit.bytes)) {
      if (message.type == kAlternativeTransfer) return true;
    }
  }
  return false;
}

}  // namespace

HdrChecker::HdrChecker(const MediaStream& stream, FindingList& findings)
    : stream_(stream),
      container_{stream.mastering, stream.lightLevel},
      transfer_(stream.container.transfer),
      findings_(findings) {}

void HdrChecker::TakeSps(const SpsFacts& sps) {
  if (sps.colour && sps.colour->transfer != kUnspecified) transfer_ = sps.colour->transfer;
}

void HdrChecker::Take(Codec codec, const std::vector<Unit>& units, int64_t frame) {
  const StreamHdr hdr = HdrOf(codec, units);
  // Streams that also older players shall show carry the transfer that is meant in a message.
  if (!otherTransfer_ && transfer_ != kPq && transfer_ != kHlg && (hdr.mastering || hdr.lightLevel))
    otherTransfer_ = NamesOtherTransfer(codec, units);
  if (hdr.mastering) {
    if (last_.mastering && *last_.mastering != *hdr.mastering)
      Add("the mastering display changes within the stream", frame);
    if (container_.mastering && *container_.mastering != *hdr.mastering)
      Add(fmt::format("mastering display: the container says {}, the stream {}",
                      MasteringDisplayText(*container_.mastering), MasteringDisplayText(*hdr.mastering)),
          frame);
    last_.mastering = hdr.mastering;
  }
  if (hdr.lightLevel) {
    if (container_.lightLevel && *container_.lightLevel != *hdr.lightLevel)
      Add(fmt::format("content light level: the container says {},{}, the stream {},{}",
                      container_.lightLevel->maxContent, container_.lightLevel->maxAverage,
                      hdr.lightLevel->maxContent, hdr.lightLevel->maxAverage),
          frame);
    last_.lightLevel = hdr.lightLevel;
  }
}

void HdrChecker::Finish() {
  JudgeBaseLayer();
  if (!stream_.encrypted) {
    if (container_.mastering && !last_.mastering)
      Add("the container has a mastering display, the stream has none", -1);
    if (container_.lightLevel && !last_.lightLevel)
      Add("the container has a content light level, the stream has none", -1);
  }
  StreamHdr hdr = last_;
  if (!hdr.mastering) hdr.mastering = container_.mastering;
  if (!hdr.lightLevel) hdr.lightLevel = container_.lightLevel;
  // Zeros stand for what nobody knows.
  if (hdr.mastering == MasteringDisplay{}) hdr.mastering.reset();
  if (hdr.lightLevel == LightLevel{}) hdr.lightLevel.reset();
  JudgeTransfer(hdr);
  if (hdr.mastering) JudgeDisplay(*hdr.mastering);
  JudgeLight(hdr);
}

void HdrChecker::JudgeTransfer(const StreamHdr& hdr) {
  const char* const what = hdr.mastering ? "a mastering display" : "a content light level";
  const bool any = hdr.mastering || hdr.lightLevel;
  // The metadata of Dolby Vision tell what its base layer does not.
  if (any && transfer_ == kUnspecified && !stream_.dolbyVision) {
    findings_.Add(stream_.index, FindingKind::kHdr,
                  fmt::format("there is {}, and nothing says the transfer: players take it for no HDR", what),
                  -1, Severity::kNote);
  } else if (any && transfer_ != kUnspecified && transfer_ != kPq && transfer_ != kHlg && !otherTransfer_) {
    Add(fmt::format("there is {}, and the transfer is {}: players take it for no HDR", what,
                    TransferName(static_cast<uint32_t>(transfer_))),
        -1);
  }
  if (transfer_ == kPq && !hdr.mastering && !stream_.encrypted && !stream_.dolbyVision)
    findings_.Add(stream_.index, FindingKind::kHdr,
                  "the transfer is PQ, and there is no mastering display: players guess how bright it is", -1,
                  Severity::kNote);
}

void HdrChecker::JudgeDisplay(const MasteringDisplay& display) {
  const std::pair<const char*, MasteringDisplay::Point> points[] = {
      {"green", display.green}, {"blue", display.blue}, {"red", display.red}, {"white", display.white}};
  for (const auto& [name, point] : points) {
    // (0,0) is what is written for a point that nobody knows.
    if (point == MasteringDisplay::Point{} || IsOnChart(point)) continue;
    Add(fmt::format("mastering display: {} at ({:.5g}, {:.5g}) is outside of the chart", name,
                    point.x / 50000.0, point.y / 50000.0),
        -1);
  }
  if (display.maxLuminance != 0 && display.minLuminance >= display.maxLuminance)
    Add(fmt::format("mastering display: its least luminance, {} cd/m2, is not below its peak of {} cd/m2",
                    LuminanceText(display.minLuminance), LuminanceText(display.maxLuminance)),
        -1);
}

void HdrChecker::JudgeLight(const StreamHdr& hdr) {
  if (!hdr.lightLevel) return;
  const LightLevel& light = *hdr.lightLevel;
  if (light.maxContent != 0 && light.maxAverage > light.maxContent)
    Add(fmt::format("content light level: its average, {} cd/m2, is above its maximum of {} cd/m2",
                    light.maxAverage, light.maxContent),
        -1);
  if (!hdr.mastering || hdr.mastering->maxLuminance == 0) return;
  const uint32_t peak = hdr.mastering->maxLuminance;
  if (light.maxContent * uint64_t{10000} > peak)
    Add(fmt::format(
            "content light level: its maximum, {} cd/m2, is above the mastering display's peak of {} cd/m2",
            light.maxContent, LuminanceText(peak)),
        -1);
}

void HdrChecker::JudgeBaseLayer() {
  if (!stream_.dolbyVision || transfer_ == kUnspecified) return;
  for (const BaseLayer& layer : kBaseLayers) {
    if (stream_.dolbyVision->dv_bl_signal_compatibility_id != layer.compatibility || layer.Has(transfer_))
      continue;
    Add(fmt::format("Dolby Vision profile {}: the record says that the base layer is {}, the transfer is {}",
                    stream_.dolbyVision->dv_profile, layer.name,
                    TransferName(static_cast<uint32_t>(transfer_))),
        -1);
  }
}

void HdrChecker::Add(std::string text, int64_t frame) {
  findings_.Add(stream_.index, FindingKind::kHdr, std::move(text), frame);
}

}  // namespace qlnmedia
