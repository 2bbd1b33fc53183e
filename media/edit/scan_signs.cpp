// Looks for signs of frames and of fields.

#include "edit/scan_signs.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <utility>

#include "timing/hevc_timing.h"
#include "units/access_unit.h"
#include "units/unit_types.h"

namespace qlnmedia {

namespace {

void Keep(std::string& sign, std::string text) {
  if (sign.empty()) sign = std::move(text);
}

// Rasters that only fields have: half the lines of the interlaced systems.
bool IsFieldRaster(uint32_t width, uint32_t height) {
  struct Raster {
    uint32_t width;
    uint32_t height;
  };
  static constexpr Raster kRasters[] = {{1920, 540}, {1920, 544}, {1440, 540}, {1440, 544}, {720, 288},
                                        {720, 240},  {720, 243},  {704, 288},  {704, 240}};
  return std::any_of(std::begin(kRasters), std::end(kRasters),
                     [&](const Raster& raster) { return raster.width == width && raster.height == height; });
}

}  // namespace

std::optional<PictureTimingPlace> FindPictureTiming(const PictureUnits& part) {
  for (size_t i = part.begin(), slice = part.slice(); i < slice; ++i) {
    if (!IsSei(Codec::kHevc, UnitType(Codec::kHevc, part.units[i].bytes))) continue;
    const std::vector<SeiMessage> messages = ReadSeiMessages(Codec::kHevc, part.units[i].bytes);
    for (size_t n = 0; n < messages.size(); ++n) {
      if (messages[n].type == sei::kPictureTiming) return PictureTimingPlace{i, n, messages[n]};
    }
  }
  return {};
}

ScanSigns::ScanSigns(const StreamDescription& stream) {
  const ConfigRecord config = ConfigOf(stream);
  framing_ = config.framing;
  if (!stream.raw) height_ = stream.height;
  if (stream.ownMarks) rate_ = stream.averageRate;
  for (const Bytes& unit : config.units()) {
    tracker_.TakeSet(unit);
    TakeSet(unit);
  }
}

void ScanSigns::TakeSet(ByteSpan unit) {
  if (!IsSps(Codec::kHevc, UnitType(Codec::kHevc, unit)) || !IsBaseLayer(Codec::kHevc, unit)) return;
  const std::optional<SpsFacts> sps = ReadSpsFacts(Codec::kHevc, unit);
  if (!sps) return;
  sps_ = sps;
  TakeSps(*sps);
}

void ScanSigns::TakeSps(const SpsFacts& sps) {
  if (sps.hevc.interlace[2]) Keep(fields_, "the sequence parameter set says field_seq_flag 1");
  if (height_ > 0 && sps.height > 0 && height_ == 2 * sps.height)
    Keep(fields_, fmt::format("the container's picture has {} lines, a coded one {}", height_, sps.height));
  if (rate_.numerator > 0 && rate_.denominator > 0 && sps.numUnitsInTick != 0) {
    const double said = static_cast<double>(sps.timeScale) / sps.numUnitsInTick;
    const double is = rate_.value();
    // Containers average; only what cannot be rounding counts.
    if (std::abs(is - 2 * said) < 0.02 * is)
      Keep(fields_, fmt::format("there are two pictures in each frame time: {:.5g} a second where the "
                                "sequence parameter set says {:.5g}",
                                is, said));
  }
  if (IsFieldRaster(sps.width, sps.height))
    Keep(likelyFields_, fmt::format("{} x {} is the raster of a field", sps.width, sps.height));
  if (sps.sarWidth != 0 && sps.sarHeight == 2 * sps.sarWidth)
    Keep(likelyFields_, "its samples are twice as high as wide");
}

void ScanSigns::TakePacket(ByteSpan data) {
  std::vector<Unit> units = TakeApart(data, framing_).units;
  for (const Unit& unit : units) TakeSet(unit.bytes);
  const std::vector<PictureUnits> parts = PartUnits(Codec::kHevc, tracker_, std::move(units));
  if (CountPictures(parts) == 2) Keep(fields_, "a packet holds two pictures");
  for (const PictureUnits& part : parts) {
    if (!part.picture) continue;
    const std::optional<PictureTimingPlace> timing = FindPictureTiming(part);
    std::optional<FrameFieldInfo> info;
    if (timing && sps_ && sps_->hevc.frameFieldInfo) info = ReadFrameFieldInfo(timing->content.payload);
    everyPictureTold_ = everyPictureTold_ && info;
    if (!info) continue;
    const bool field = IsFieldPicStruct(info->picStruct);
    Keep(field ? fields_ : frames_, fmt::format("picture timing says pic_struct {}", info->picStruct));
  }
}

}  // namespace qlnmedia
