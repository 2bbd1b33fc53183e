// The stream editor's outside: which editor a codec asks for.

#include "qlnmedia/stream_editor.h"

#include <deque>
#include <utility>

#include "edit/unit_stream_editor.h"

namespace qlnmedia {

// MPEG-2: captions, packet by packet.
class Mpeg2Editor {
 public:
  Mpeg2Editor(const StreamChanges& changes, const StreamSurvey* survey, const std::string& where,
              EditCounts& counts)
      : counts_(counts), captions_(changes, survey, where, counts) {
    if (changes.beyondCaptions()) throw Error(where, "is MPEG-2, which takes captions and nothing else");
    if (captions_.needsPlaces()) throw Error(where, "is MPEG-2, whose captions take a survey of the stream");
  }
  void Push(AccessUnit unit) {
    captions_.NextPacket();
    Bytes data = captions_.ChangeMpeg2(unit.data);
    if (unit.captions) data = PutOwnCaptions(data, *unit.captions, counts_);
    const bool changed = data != unit.data;
    unit.data = std::move(data);
    queue_.push_back({std::move(unit), changed});
  }
  std::optional<EditedUnit> Pull() {
    if (queue_.empty()) return {};
    EditedUnit edited = std::move(queue_.front());
    queue_.pop_front();
    return edited;
  }

 private:
  EditCounts& counts_;
  CaptionEdit captions_;
  std::deque<EditedUnit> queue_;
};

struct StreamEditor::Impl {
  EditCounts counts;
  Bytes privateData;  // of MPEG-2
  std::optional<UnitStreamEditor> units;
  std::optional<Mpeg2Editor> mpeg2;
};

StreamEditor::StreamEditor(const StreamDescription& stream, const StreamChanges& changes,
                           const StreamSurvey* survey, std::string where)
    : impl_(std::make_unique<Impl>()) {
  if (stream.lengthBytes && *stream.lengthBytes != 0 && *stream.lengthBytes != 1 &&
      *stream.lengthBytes != 2 && *stream.lengthBytes != 4)
    throw Error(where, "has units whose length is told in a way that is not known", "say 0, 1, 2 or 4 bytes");
  if (UnitCodecOf(stream.codec)) {
    impl_->units.emplace(stream, changes, survey, where, impl_->counts);
  } else if (stream.codec == VideoCodec::kMpeg2) {
    impl_->privateData = stream.privateData;
    impl_->mpeg2.emplace(changes, survey, where, impl_->counts);
  } else {
    throw Error(where, "is no H.264, HEVC or MPEG-2 stream");
  }
}

StreamEditor::~StreamEditor() = default;

const std::vector<uint8_t>& StreamEditor::privateData() const {
  return impl_->units ? impl_->units->privateData() : impl_->privateData;
}

void StreamEditor::Push(AccessUnit unit) {
  if (impl_->units) {
    impl_->units->Push(std::move(unit));
  } else {
    impl_->mpeg2->Push(std::move(unit));
  }
}

std::optional<EditedUnit> StreamEditor::Pull() {
  return impl_->units ? impl_->units->Pull() : impl_->mpeg2->Pull();
}

void StreamEditor::Finish() {
  if (impl_->units) impl_->units->Finish();
}

const EditCounts& StreamEditor::counts() const { return impl_->counts; }

}  // namespace qlnmedia
