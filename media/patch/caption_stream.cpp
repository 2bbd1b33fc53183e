// Reads when pictures are shown and where they stand, and puts captions in front of them.

#include "patch/caption_stream.h"

#include <fmt/format.h>

#include <algorithm>
#include <optional>
#include <set>
#include <utility>

#include "base/error.h"
#include "base/progress.h"
#include "captions/anc_writer.h"
#include "container/anc_captions.h"
#include "container/container_kind.h"
#include "container/mp4/output_file.h"
#include "container/raw_end.h"
#include "container/ts/kept_packets.h"
#include "container/ts/stream_addition.h"
#include "patch/caption_file.h"
#include "patch/packet_input.h"
#include "patch/picture_times.h"

namespace qlnmedia {

namespace {

constexpr uint8_t kPrivateData = 0x06;  // stream_type: PES packets with private data
// What the stream is registered as, and that it holds ancillary data (SMPTE ST 2038: anc_data_descriptor).
const Bytes kDescriptors = {0x05, 0x04, 'V', 'A', 'N', 'C', 0xC4, 0x00};
constexpr int64_t kJump = 10 * 90000;  // units of 90 kHz by which no picture is held back

// Of each picture: when it is shown, in the order of that; and where one begins, in the order of the file.
// The n-th that is shown is not shown before the n-th one of the file can be decoded.
struct Pictures {
  std::vector<int64_t> times;
  std::vector<uint64_t> places;
};

Pictures ReadPictures(const PacketInput& input, const MediaStream& stream, const ProgressCallback& progress) {
  Pictures found;
  int64_t latest = INT64_MIN;
  const auto take = [&](unsigned, const PacketView& packet) {
    if (packet.pts == kNoTime) return;
    if (latest != INT64_MIN && packet.pts < latest - kJump)
      throw Error(input.path(),
                  fmt::format("stream {}: its times go back at byte {}", stream.index, packet.position),
                  "cut it there first");
    latest = std::max(latest, packet.pts);
    found.times.push_back(packet.pts);
    const uint64_t before = found.places.empty() ? 0 : found.places.back();
    found.places.push_back(std::max(before, static_cast<uint64_t>(std::max<int64_t>(packet.position, 0))));
  };
  input.Read({stream.index}, progress, take);
  std::sort(found.times.begin(), found.times.end());
  if (found.times.empty()) throw Error(input.path(), fmt::format("stream {} has no times", stream.index));
  return found;
}

// A packet of private_stream_1 (ISO/IEC 13818-1 clause 2.4.3.7) whose data is aligned.
Bytes PesOf(const Bytes& data, int64_t pts) {
  constexpr size_t kBehindLength = 8;
  const size_t length = kBehindLength + data.size();
  const auto at = static_cast<uint64_t>(pts);
  Bytes pes = {0, 0, 1, 0xBD, static_cast<uint8_t>(length >> 8), static_cast<uint8_t>(length), 0x84, 0x80, 5};
  pes.push_back(static_cast<uint8_t>(0x21 | (at >> 29 & 0x0E)));
  for (const int shift : {22, 7}) {
    pes.push_back(static_cast<uint8_t>(at >> shift));
    pes.push_back(static_cast<uint8_t>((at >> (shift - 7) << 1 & 0xFE) | 1));
  }
  pes.insert(pes.end(), data.begin(), data.end());
  return pes;
}

void RequireAlone(const PatchOptions& options, const MediaFile& in) {
  if (options.beyondCaptions())
    throw Error("--caption-stream", "goes with no other change of the streams", "patch twice");
  const std::vector<unsigned> there = FindAncStreams(in);
  if (!there.empty())
    throw Error(
        options.in,
        fmt::format("has ancillary data in stream {}, and takes no second such stream", there.front()),
        "what is there may be more than captions, and is not replaced");
}

}  // namespace

PatchResult PatchCaptionStream(const PatchOptions& options, MediaFile& in) {
  RequireAlone(options, in);
  const std::string early = EndNote(in);
  if (!options.dryRun) RequireOutput(in, options.out);
  const MediaStream& stream = FirstPictures(in, options.in);
  const PacketInput input(in, true);
  CaptionFile captions(*options.captions);
  const Pictures pictures = ReadPictures(input, stream, options.progress);
  const CaptionSurvey survey = SurveyOfTimes(input.Describe(stream.index), pictures.times);
  captions.SpreadOver(survey, options.in, stream.index, options.rate);
  const mp4::FileSource source(options.in);
  ts::StreamAddition addition(source, static_cast<uint16_t>(stream.id), kPrivateData, kDescriptors);
  std::optional<mp4::OutputFile> out;
  if (!options.dryRun) out.emplace(options.out, mp4::Disk::System(), options.unfinished);
  const CaptionProvider provider = captions.provider();
  size_t picture = 0;
  const auto next = [&](ts::PlacedPes& pes) {
    if (picture == pictures.times.size()) return false;
    captions::CaptionPacket packet;
    packet.rate = captions.rate();
    packet.counter = static_cast<uint16_t>(picture);
    packet.triplets = provider(static_cast<uint32_t>(picture));
    const auto placeOf = [&](size_t n) { return pictures.places[std::min(n, pictures.places.size() - 1)]; };
    // In front of its picture; where only null packets may be taken, and at the begin, up to the next one.
    const size_t by = picture + (options.keepRate || picture == 0 ? 1 : 0);
    pes = {placeOf(picture == 0 ? 0 : picture - 1), placeOf(by),
           PesOf(captions::WriteSt2038(captions::AncOfCdp(captions::WriteCdp(packet))),
                 pictures.times[picture])};
    ++picture;
    return true;
  };
  Progress meter(options.progress, options.dryRun ? "reading" : "patching", in.sizeBytes());
  const ts::StreamAddition::Counts counts = addition.Write(
      next, out ? &*out : nullptr, [&meter](uint64_t at) { meter.At(static_cast<int64_t>(at)); });
  if (options.keepRate && counts.putIn != 0)
    throw Error(options.in,
                fmt::format("has {} null packets too few for what comes in at its rate", counts.putIn),
                "leave --keep-rate out, or remux it with more null packets");
  PatchResult result;
  result.lines = {
      fmt::format("stream {}: ancillary data stream put in, packet identifier {:#x}: captions of {} pictures",
                  stream.index, addition.identifier(), pictures.times.size())};
  if (counts.putIn != 0)
    result.lines.push_back(
        fmt::format("{} packets put in, where the file had no null packets for them", counts.putIn));
  for (std::string& line : captions.Warnings()) result.lines.push_back(std::move(line));
  if (!early.empty()) result.lines.push_back("warning: " + early);
  if (out) {
    ts::RequireOthersKept(source, mp4::FileSource(out->Readable()), {addition.identifier(), addition.map()},
                          options.out);
    if (options.verify)
      result.lines.emplace_back(
          "verified: all packets but those of the program map are the input's, in their order");
    out->Finish();
  }
  meter.Done();
  return result;
}

}  // namespace qlnmedia
