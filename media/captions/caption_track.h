// Caption files of either kind as captions by time, spread over the pictures of a video stream, and back.
#ifndef CAPTIONS_CAPTION_TRACK_H
#define CAPTIONS_CAPTION_TRACK_H

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "captions/cdp.h"
#include "captions/scc_file.h"
#include "captions/sequencer.h"

namespace qlnmedia::captions {

// What a file has for one frame.
struct CaptionEvent {
  int64_t at = 0;  // frames of the track's rate from 00:00:00:00
  std::vector<Triplet> triplets;
};

struct CaptionTrack {
  Rate rate = Rate::k29_97;
  bool line21Only = false;  // a Scenarist file
  int nominal = 30;         // frames that its timecodes count in a second
  int framesPerNumber = 1;  // 2 where two pictures share a timecode
  bool dropFrame = false;
  bool fromZero = false;             // times count from the first picture
  std::vector<CaptionEvent> events;  // at times that rise

  // The whole hour in which it begins, in frames; 0 where times count from the first picture.
  int64_t FirstHour() const;
  // The frame of a timecode of the file; nothing for a text that is none, or that does not exist.
  std::optional<int64_t> FrameOf(std::string_view timecode) const;
};

// Reads the text of a .scc or .mcc file, told apart by their headings. Nothing, with a reason that names the
// line, for other texts, damaged packets, times that go back, and files without captions.
std::optional<CaptionTrack> ReadCaptionTrack(std::string_view text, std::string* reason);

// Gives the pictures of a stream their captions, one after the other, each with the constant number of
// triplets that its rate asks for.
class CaptionPictures {
 public:
  // `offset`, in frames of the track, is the first picture's time. `track` must outlive this.
  CaptionPictures(const CaptionTrack& track, Rate rate, int64_t offset);

  // The triplets of the next picture in presentation order, which stands `number` frames of the stream's rate
  // behind the first one. Numbers do not fall; a stream whose pictures follow each other steadily counts
  // them.
  std::vector<Triplet> Next(int64_t number);
  // Events that begin before the first picture, and are lost.
  size_t early() const { return early_; }
  // Events that no picture has had yet.
  size_t left() const { return track_.events.size() - next_; }
  // True where neither events nor what they hold is left.
  bool over() const { return left() == 0 && sequencer_.empty(); }
  // True if the track is of another rate, so that times were converted. Drop-frame labels are of 29.97 or
  // 59.94 frames a second, and of 30 or 60 no more than of 25.
  bool converted() const;

 private:
  bool IsDue(const CaptionEvent& event, int64_t number) const;
  void Queue(const CaptionEvent& event);

  const CaptionTrack& track_;
  Rate rate_;
  int64_t offset_;
  Sequencer sequencer_;
  bool asTheyAre_ = false;  // events are whole pictures of this very rate
  size_t next_ = 0;
  size_t early_ = 0;
};

// Makes a .mcc file out of pictures in presentation order; the first one has the label `first`. Numbers are
// those of CaptionPictures. Drop-frame labels are for rates that allow them (RateInfo).
class MccTrackWriter {
 public:
  explicit MccTrackWriter(Rate rate, bool dropFrame = false, int64_t first = 0);
  // What the file begins with.
  std::string Heading() const;
  // The lines of the next picture: packets of at most kMostTriplets, none for a picture without captions.
  std::string Lines(const std::vector<Triplet>& triplets, int64_t number);

 private:
  Rate rate_;
  int nominal_;
  bool dropFrame_;
  int64_t first_;
  uint16_t counter_ = 0;
};

// Makes a .scc file out of the line 21 pairs of field 1 in the same way; its labels are the nearest ones.
// Drop-frame labels go by time, at any rate.
class SccTrackWriter {
 public:
  explicit SccTrackWriter(Rate rate, bool dropFrame = false, int64_t first = 0)
      : rate_(rate), first_(first), free_(first) {
    file_.dropFrame = dropFrame;
  }
  void Add(const std::vector<Triplet>& triplets, int64_t number);
  std::string Text() const { return WriteScc(file_); }

 private:
  Rate rate_;
  SccFile file_;
  int64_t first_;
  int64_t free_;  // the first frame that has no pair
};

}  // namespace qlnmedia::captions

#endif
