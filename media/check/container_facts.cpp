// Compares a container's description with a sequence parameter set, fact by fact.

#include "check/container_facts.h"

#include <fmt/format.h>

#include <cmath>

#include "check/colour_codes.h"
#include "sets/names.h"

namespace qlnmedia {

namespace {

class FactChecker {
 public:
  FactChecker(const MediaStream& stream, const SpsFacts& sps, const SetPlace& place, FindingList& findings)
      : stream_(stream),
        container_(stream.container),
        sps_(sps),
        place_(place),
        findings_(findings),
        h264_(stream.coded.codec == VideoCodec::kH264) {}

  void CheckColour() {
    if (!sps_.colour) return;
    CheckCode("primaries", container_.primaries, sps_.colour->primaries, ColourPrimariesName);
    CheckCode("transfer", container_.transfer, sps_.colour->transfer, TransferName);
    CheckCode("matrix", container_.matrix, sps_.colour->matrix, MatrixName);
    const int transfer = sps_.colour->transfer;
    if ((transfer == kPq || transfer == kHlg) && container_.transfer == kUnspecified)
      findings_.Add(stream_.index, FindingKind::kColour,
                    fmt::format("transfer: the container says nothing, {} {}; players that ask the container "
                                "alone take it for no HDR",
                                place_.name, TransferName(sps_.colour->transfer)),
                    place_.frame, Severity::kNote);
  }

  void CheckRange() {
    const bool full = container_.range == kFullRange;
    if (!sps_.signalType || container_.range == kRangeUnknown || full == sps_.fullRange) return;
    Add(FindingKind::kRange, fmt::format("the container says {} range, {} {}", full ? "full" : "limited",
                                         place_.name, sps_.fullRange ? "full" : "limited"));
  }

  void CheckSize() {
    if (container_.width <= 0 || container_.height <= 0 ||
        (container_.width == static_cast<int>(sps_.width) &&
         container_.height == static_cast<int>(sps_.height)))
      return;
    Add(FindingKind::kSize, fmt::format("the container says {} x {}, {} {} x {}", container_.width,
                                        container_.height, place_.name, sps_.width, sps_.height));
  }

  // Containers may hold a display size of whole pixels in place of a ratio.
  void CheckAspect() {
    const Rational said = container_.sampleAspect;
    const SampleAspect aspect = SampleAspectRatio(sps_.aspectRatioIdc, sps_.sarWidth, sps_.sarHeight);
    if (said.numerator <= 0 || said.denominator <= 0 || aspect.width == 0 || aspect.height == 0) return;
    const double is = static_cast<double>(aspect.width) / aspect.height;
    const auto shows = [said](double shape) { return std::abs(said.value() - shape) <= 0.01 * shape; };
    if (shows(is)) return;
    // Where two views share a picture, some writers tell of the picture and some of one view.
    if (!stream_.stereo.empty() && (shows(is * 2) || shows(is / 2))) return;
    Add(FindingKind::kAspect, fmt::format("the container says samples of {}:{}, {} {}:{}", said.numerator,
                                          said.denominator, place_.name, aspect.width, aspect.height));
  }

  // Without fixed_frame_rate_flag the timing of H.264 is a unit of time and no rate.
  void CheckRate() {
    if (h264_ && !sps_.h264.fixedFrameRate) return;
    const Rational rate = stream_.coded.averageRate;
    if (rate.numerator <= 0 || rate.denominator <= 0) return;
    if (sps_.numUnitsInTick == 0 || sps_.timeScale == 0) return;
    const double said = static_cast<double>(sps_.timeScale) / sps_.numUnitsInTick / (h264_ ? 2 : 1);
    // Containers average, and single pictures may be left out: only a rate that neither the average nor the
    // distances between pictures show counts.
    const auto shows = [said](Rational is) {
      return is.numerator > 0 && is.denominator > 0 && std::abs(said - is.value()) <= 0.02 * is.value();
    };
    if (shows(rate) || shows(stream_.coded.baseRate)) return;
    Add(FindingKind::kRate, fmt::format("the container runs at {:.5g} frames a second, {} says {:.5g}",
                                        rate.value(), place_.name, said));
  }

  void CheckInterlace() {
    const bool progressiveOnly =
        h264_ ? sps_.h264.frameMbsOnly && !sps_.h264.picStruct
              : !sps_.hevc.interlace[2] && sps_.hevc.interlace[0] && !sps_.hevc.interlace[1];
    if (container_.fieldOrder > kProgressive && progressiveOnly)
      Add(FindingKind::kInterlace,
          fmt::format("the container says fields, {} progressive frames", place_.name));
    if (container_.fieldOrder == kProgressive && !h264_ && sps_.hevc.interlace[2])
      Add(FindingKind::kInterlace, fmt::format("the container says progressive, {} fields", place_.name));
  }

 private:
  // Values differ, and both sides say something.
  void CheckCode(const char* what, int container, int stream, std::string (*name)(uint32_t)) {
    if (container == kUnspecified || stream == kUnspecified || container == stream) return;
    Add(FindingKind::kColour,
        fmt::format("{}: the container says {}, {} {}", what, name(static_cast<uint32_t>(container)),
                    place_.name, name(static_cast<uint32_t>(stream))));
  }

  void Add(FindingKind kind, std::string text) {
    findings_.Add(stream_.index, kind, std::move(text), place_.frame);
  }

  const MediaStream& stream_;
  const ContainerColour& container_;
  const SpsFacts& sps_;
  const SetPlace& place_;
  FindingList& findings_;
  bool h264_;
};

}  // namespace

void CheckContainerFacts(const MediaStream& stream, const SpsFacts& sps, const SetPlace& place,
                         FindingList& findings) {
  if (!stream.hasColourDescription) return;
  FactChecker checker(stream, sps, place, findings);
  checker.CheckColour();
  checker.CheckRange();
  checker.CheckSize();
  checker.CheckAspect();
  checker.CheckRate();
  checker.CheckInterlace();
}

}  // namespace qlnmedia
