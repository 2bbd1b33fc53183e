// Sizes of pictures, written over those that are there.

#include "container/mp4/picture_size.h"

#include <algorithm>
#include <array>
#include <numeric>
#include <optional>

namespace qlnmedia::mp4 {

namespace {

constexpr size_t kApertureBytes = 32;

struct Fraction {
  int64_t numerator = 0;
  int64_t denominator = 1;
};

// One direction of a clean aperture: its size, and how far its centre lies behind the picture's.
struct Span {
  Fraction size;
  Fraction offset;
};

// The part of a picture of `was` samples that it names, in one of `is` samples whose begin lies `moved`
// samples further in. Nothing where no part of it is left, or numbers grow beyond their room.
std::optional<Span> Moved(const Span& span, int64_t was, int64_t is, int64_t moved) {
  constexpr int64_t kMostDenominator = 1 << 20;
  if (span.size.denominator <= 0 || span.offset.denominator <= 0 || span.size.numerator <= 0 ||
      span.size.denominator > kMostDenominator || span.offset.denominator > kMostDenominator ||
      span.size.numerator / span.size.denominator > was)
    return {};
  // Everything in units of 1 / scale of a sample, so that what is halved below is even.
  const int64_t scale = 4 * std::lcm(span.size.denominator, span.offset.denominator);
  if (scale > kMostDenominator * 4) return {};
  const int64_t size = span.size.numerator * (scale / span.size.denominator);
  const int64_t offset = span.offset.numerator * (scale / span.offset.denominator);
  const int64_t begin = (was * scale - size) / 2 + offset - moved * scale;
  const int64_t left = std::max<int64_t>(begin, 0);
  const int64_t right = std::min(begin + size, is * scale);
  if (left >= right) return {};
  const auto reduced = [scale](int64_t units) {
    const int64_t common = std::max<int64_t>(std::gcd(units, scale), 1);
    return Fraction{units / common, scale / common};
  };
  return Span{reduced(right - left), reduced((left + right - is * scale) / 2)};
}

// Lines of the container's picture for each of the stream's, which may be fields.
uint32_t LinesOf(const PictureSize& picture, uint32_t saidHeight) {
  return picture.wasHeight != 0 && saidHeight == 2 * picture.wasHeight ? 2 : 1;
}

// A value of 16.16 in the proportion in which a size changes.
uint64_t InProportion(uint64_t value, uint64_t was, uint64_t is) {
  return was == 0 ? value : (value * is + was / 2) / was;
}

class TrackSizes {
 public:
  TrackSizes(Edit& edit, Reader& reader, std::array<uint32_t, 2> was, std::array<uint32_t, 2> is)
      : edit_(edit), reader_(reader), was_(was), is_(is) {}

  void WriteHeader(const Box& header) {
    // Of version 1 the times are longer.
    const uint64_t behind = reader_.U8(header.body) == 1 ? 96 : 84;
    RequireBody(reader_, header, behind);
    Write(header.body + behind - kHeaderSizeBytes);
  }

  void WriteApertures(const Box& apertures) {
    BoxLevel level = BoxLevel::Inside(reader_, apertures);
    for (Box box; level.Next(box);) {
      const bool known =
          box.type == FourCc("clef") || box.type == FourCc("prof") || box.type == FourCc("enof");
      if (known && box.bodySize() >= 12) Write(box.body + 4);
    }
  }

 private:
  void Write(uint64_t at) {
    for (size_t i = 0; i < 2; ++i) {
      const uint64_t old = reader_.U32(at + 4 * i);
      edit_.PutNumber(reader_, at + 4 * i, 4, InProportion(old, was_[i], is_[i]), "the size of a track");
    }
  }

  Edit& edit_;
  Reader& reader_;
  std::array<uint32_t, 2> was_;
  std::array<uint32_t, 2> is_;
};

}  // namespace

std::array<uint32_t, 2> ReadEntrySize(Reader& reader, const Description& description) {
  const uint64_t at = description.entry.body + kEntrySizeAt;
  return {reader.U16(at), reader.U16(at + 2)};
}

std::array<uint32_t, 2> FollowedSize(const PictureSize& picture, const std::array<uint32_t, 2>& said) {
  return {picture.width, picture.height * LinesOf(picture, said[1])};
}

Bytes FollowedAperture(const Bytes& body, const PictureSize& picture, const std::array<uint32_t, 2>& said,
                       const std::array<uint32_t, 2>& fresh) {
  if (body.size() < kApertureBytes || said == fresh) return body;
  const auto word = [&body](size_t index) { return LoadNumber(body.data() + 4 * index, 4); };
  const auto number = [&word](size_t index) { return static_cast<int64_t>(word(index)); };
  const auto signedNumber = [&word](size_t index) {
    return static_cast<int64_t>(static_cast<int32_t>(static_cast<uint32_t>(word(index))));
  };
  Bytes out;
  std::array<std::optional<Span>, 2> spans;
  const std::array<int64_t, 2> moved = {picture.left, picture.top};
  for (size_t i = 0; i < 2; ++i) {
    const Span span{{number(2 * i), number(2 * i + 1)}, {signedNumber(4 + 2 * i), number(5 + 2 * i)}};
    const int64_t each = i == 1 ? LinesOf(picture, said[1]) : 1;
    // A container that named the smaller picture already named the part of it.
    const int64_t shift = said[i] == fresh[i] ? 0 : moved[i] * each;
    spans[i] = Moved(span, said[i], fresh[i], shift);
    if (!spans[i]) return body;
  }
  for (const auto part : {&Span::size, &Span::offset}) {
    for (const auto& span : spans) {
      PutNumber(out, static_cast<uint32_t>(((*span).*part).numerator), 4);
      PutNumber(out, static_cast<uint32_t>(((*span).*part).denominator), 4);
    }
  }
  out.insert(out.end(), body.begin() + kApertureBytes, body.end());
  return out;
}

void WritePictureSizes(Edit& edit, const Track& track, const std::vector<PictureSize>& pictures) {
  if (pictures.empty()) return;
  Reader reader(edit.source);
  std::optional<TrackSizes> sizes;
  for (const PictureSize& picture : pictures) {
    if (picture.description == 0 || picture.description > track.descriptions.size()) continue;
    const Description& description = track.descriptions[picture.description - 1];
    RequireBody(reader, description.entry, kVisualSampleEntryBytes);
    const std::array<uint32_t, 2> said = ReadEntrySize(reader, description);
    const std::array<uint32_t, 2> fresh = FollowedSize(picture, said);
    const uint64_t at = description.entry.body + kEntrySizeAt;
    for (size_t i = 0; i < 2; ++i) edit.PutNumber(reader, at + 2 * i, 2, fresh[i], "the size of a picture");
    // The track is shown at the size that its first description asks for.
    if (!sizes) sizes.emplace(edit, reader, said, fresh);
  }
  if (!sizes) return;
  if (const auto header = FindBox(reader, track.box, FourCc("tkhd"))) sizes->WriteHeader(*header);
  if (const auto apertures = FindBox(reader, track.box, FourCc("tapt"))) sizes->WriteApertures(*apertures);
}

}  // namespace qlnmedia::mp4
