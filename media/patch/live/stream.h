// One stream that is edited as it comes: what the editor cannot take is told and passes as it came, and the
// editor takes up again behind it.
#ifndef MEDIA_PATCH_LIVE_STREAM_H
#define MEDIA_PATCH_LIVE_STREAM_H

#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "patch/live/captions.h"
#include "pictures/picture_tracker.h"
#include "qlnmedia/patch.h"
#include "qlnmedia/stream_editor.h"

namespace qlnmedia {

// Hears a line about what happens on the way.
using LiveReport = std::function<void(const std::string& line)>;

class LiveStream {
 public:
  // An access unit that comes back.
  struct Picture {
    bool changed = false;
    Bytes data;  // where it changed
  };

  // `description` with the parameter sets that the stream begins with. `captions` may be null; that and
  // `options` are kept by the caller. Throws Error where the stream cannot be edited in that way.
  LiveStream(unsigned index, StreamDescription description, const PatchOptions& options,
             LiveCaptions* captions, LiveReport report);
  LiveStream(const LiveStream&) = delete;
  LiveStream& operator=(const LiveStream&) = delete;

  // Takes the next access unit in coding order, or both fields of a frame; `place` is that of its first byte.
  // Throws Error where the very first picture already cannot be edited.
  void Push(Bytes data, int64_t pts, int64_t dts, bool key, uint64_t place);
  // Takes bytes of the stream that are no access unit which an editor could have, and hold so many pictures.
  void PassOn(const std::string& why, uint64_t pictures, uint64_t place);
  // Gives back access units in their order, as soon as nothing that follows can change them.
  std::optional<Picture> Pull();
  // No more come.
  void Finish();
  // What waits goes out as at the end; the next access unit is taken by another editor.
  void Break();

  Codec codec() const { return codec_; }
  const StreamDescription& description() const { return description_; }
  // As the editor needs it; valid until the next Push.
  const Bytes& privateData() const { return privateData_; }
  // What was changed, one line each.
  std::vector<std::string> Summary() const;
  // What the stream says of its order where somebody needs it, as a line; else nothing.
  std::string OrderNote() const;

 private:
  bool ordered() const { return !options_.timecode.empty() || captions_ != nullptr; }
  void MakeEditor();
  void TakeSets(const std::vector<Unit>& units);
  bool ReordersMore(const std::vector<Unit>& units);
  void Fail(const Error& error);
  void Draw();
  void Pass(const std::string& why);
  void TellPassed();
  void Report(const std::string& what) const;
  bool MayEdit(const Bytes& data, bool told, bool key);
  std::string TimecodeOfNow() const;
  void AddCounts(const EditCounts& counts);

  unsigned index_;
  StreamDescription description_;
  const PatchOptions& options_;
  LiveCaptions* captions_;  // null behind captions that the stream has of its own
  LiveCaptions* const given_;
  LiveReport report_;
  std::string where_;
  Codec codec_;
  Framing framing_;
  PictureTracker tracker_;
  std::optional<uint32_t> reorder_;  // that the stream declares
  Bytes privateData_;
  std::map<std::pair<int, uint32_t>, Bytes> sets_;  // of the stream, by type and number
  std::unique_ptr<StreamEditor> editor_;            // null behind damage
  size_t outstanding_ = 0;                          // that the editor has
  std::deque<Picture> ready_;
  uint64_t pictures_ = 0;  // taken so far; the two fields of a frame are one
  uint64_t place_ = 0;     // of the present one
  uint64_t passed_ = 0;    // in a row
  bool fields_ = false;    // HEVC: pictures are fields
  bool edited_ = false;    // some picture was
  EditCounts counts_;
};

// Whether decoding can start at a picture, as its units say.
bool IsKeyPicture(Codec codec, ByteSpan data, Framing framing);

}  // namespace qlnmedia

#endif
