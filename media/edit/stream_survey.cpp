// The first pass over a stream.

#include "edit/survey_facts.h"

namespace qlnmedia {

StreamSurvey::StreamSurvey(const StreamDescription& stream) : facts_(std::make_unique<Facts>()) {
  if (!MayHaveCaptions(stream.codec)) throw Error({}, "is no H.264, HEVC or MPEG-2 stream");
  facts_->counter.emplace(stream);
  if (stream.codec == VideoCodec::kHevc) facts_->signs.emplace(stream);
}

StreamSurvey::~StreamSurvey() = default;

void StreamSurvey::Add(const PacketView& packet) {
  facts_->counter->Add(packet);
  if (facts_->signs) facts_->signs->TakePacket(packet.data);
}

void StreamSurvey::Finish() {
  facts_->captions = facts_->counter->Finish();
  facts_->counter.reset();
}

uint32_t StreamSurvey::pictures() const { return facts_->captions.order.pictures; }

size_t StreamSurvey::captioned() const { return facts_->captions.captioned(); }

double StreamSurvey::picturesPerSecond() const { return facts_->captions.pace.picturesPerSecond; }

bool StreamSurvey::steady() const { return facts_->captions.pace.steady; }

}  // namespace qlnmedia
