// Text as captions and captions as text: pairs keep their parity, channel packets their bounds, and any
// triplets decode without harm.

#include <bit>
#include <string_view>

#include "captions/decoder.h"
#include "captions/line21.h"
#include "captions/sequencer.h"
#include "captions/service_block.h"
#include "captions/text.h"
#include "captions/timed_text.h"
#include "fuzz_input.h"

namespace {

using namespace qlnmedia::captions;

void Expect(bool holds) {
  if (!holds) __builtin_trap();
}

void TakeText(std::string_view text, int row, int service) {
  const std::vector<Pair> pairs = PopOnCaption(text, row);
  for (const Pair pair : pairs)
    Expect(std::popcount(pair & 0xFFu) % 2 == 1 && std::popcount(static_cast<unsigned>(pair) >> 8) % 2 == 1);
  Sequencer sequencer(static_cast<Rate>(row % kRateCount));
  sequencer.AddPairs(1 + service % 2, pairs);
  size_t bytes = 0;
  for (const ServiceBlock& block : ShowText(text, service)) {
    const Bytes packet = MakeChannelPacket(row, {block});
    const bool exists = service >= 1 && service <= 63;
    Expect(packet.empty() != exists && packet.size() <= 128 && packet.size() % 2 == 0);
    bytes += block.data.size();
    sequencer.AddService(TripletsOf(packet));
  }
  Expect(bytes <= text.size() + 16);
  for (size_t pictures = 0; !sequencer.empty(); ++pictures) {
    Expect(pictures < 16 * text.size() + 64);
    Expect(sequencer.NextPicture().size() <= kMostTriplets);
  }
}

void TakeTriplets(qln::fuzz::Input input) {
  qlnmedia::CaptionDecoder decoder;
  int pictures = 0;
  for (; input.left() != 0 && pictures < 200; ++pictures) {
    qlnmedia::Triplets triplets;
    const uint32_t count = input.Number(1) % 8;
    for (uint32_t i = 0; i < count; ++i) {
      const uint32_t head = input.Number(1);
      const auto first = static_cast<uint8_t>(input.Number(1));
      const auto second = static_cast<uint8_t>(input.Number(1));
      triplets.push_back({(head & 4) != 0, static_cast<CcType>(head & 3), first, second});
    }
    decoder.Add(triplets, pictures / 29.97);
  }
  decoder.Finish(pictures / 29.97);
  for (const qlnmedia::StyledService& service : decoder.styled()) {
    for (const StyledCaption& caption : service.captions) {
      Expect(caption.begin <= caption.end && !caption.rows.empty());
      for (const StyledRow& row : caption.rows)
        Expect(row.row >= 0 && row.row <= kLine21Rows && row.column + row.width <= kLine21Columns);
    }
    WriteTtml(service.captions);
    const std::string vtt = WriteVtt(service.captions);
    std::string reason;
    if (service.name.starts_with("CC")) Expect(ReadCues(vtt, &reason).has_value());
  }
  const std::vector<qlnmedia::CaptionService> services = decoder.services();
  qlnmedia::NamesOf(services);
  for (const qlnmedia::CaptionService& service : services) {
    qlnmedia::WriteSrt(service.lines);
    qlnmedia::WriteCaptionText(service.lines);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  qln::fuzz::Input input(data, size);
  const int row = static_cast<int>(input.Number(1)) % 18;
  const int service = static_cast<int>(input.Number(1)) % 66;
  TakeText({reinterpret_cast<const char*>(input.data()), input.left()}, row, service);
  TakeTriplets(input);
  return 0;
}
