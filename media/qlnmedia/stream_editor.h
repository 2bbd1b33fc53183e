/// @file stream_editor.h
/// The stream editor: one coded video stream, picture by picture, in memory. Changes what the stream says
/// (colour, HDR, timecodes, captions, ...) and leaves every coded slice as it is. It opens no file and knows
/// no container.
///
///     qlnmedia::StreamDescription stream;
///     stream.codec = qlnmedia::VideoCodec::kH264;
///     stream.privateData = avcC;
///     qlnmedia::StreamChanges changes;
///     changes.colour = qlnmedia::ColourCodes{9, 16, 9};
///     qlnmedia::StreamEditor editor(stream, changes);
///     Store(editor.privateData());
///     for (...) {
///       editor.Push({bytes, pts, dts, key});
///       while (auto edited = editor.Pull()) Store(edited->unit);
///     }
///     editor.Finish();
///     while (auto edited = editor.Pull()) Store(edited->unit);
#ifndef QLNMEDIA_STREAM_EDITOR_H
#define QLNMEDIA_STREAM_EDITOR_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "qlnmedia/api.h"
#include "qlnmedia/caption_triplet.h"
#include "qlnmedia/coded_stream.h"
#include "qlnmedia/error.h"
#include "qlnmedia/stream_values.h"

namespace qlnmedia {

/// Gives the captions of the picture at a place in presentation order, from 0. Called once for each picture,
/// in the order of the places, within Push; an exception that it throws leaves Push. At most
/// captions::kMostTriplets triplets are taken.
using CaptionProvider = std::function<std::vector<captions::Triplet>(uint32_t place)>;

/// What a stream shall say; what is not set stays as it is. MPEG-2 streams take captions and nothing else.
struct StreamChanges {
  /// Colour of the sequence parameter sets, in the private data and in the stream.
  std::optional<ColourCodes> colour;
  std::optional<bool> fullRange;  ///< video_full_range_flag
  /// What follows goes into the same sets: sample aspect ratio; level, as ten times its number, 9 for level
  /// 1b of H.264; tier of HEVC; pictures a second; chroma_sample_loc_type of both fields, of pictures in
  /// 4:2:0; samples cut off. Level, tier and pictures a second go into the video parameter sets of HEVC as
  /// well, level and tier into the head of the configuration record. What does not fit a set, as cropping by
  /// half a chroma sample, is refused.
  std::optional<SampleAspect> sampleAspect;
  std::optional<uint32_t> level;           ///< level_idc, as ten times the number
  std::optional<bool> highTier;            ///< general_tier_flag of HEVC
  std::optional<VuiTiming> timing;         ///< pictures a second
  std::optional<uint32_t> chromaLocation;  ///< 0 to 5
  std::optional<Cropping> cropping;        ///< luma samples cut off
  /// Units and messages that go, before anything is put in.
  UnitRemoval remove;
  /// Messages with these values in front of each picture where decoding can start; others of the kind go.
  std::optional<MasteringDisplay> mastering;
  std::optional<LightLevel> lightLevel;  ///< cd/m2
  /// Timecode of the first picture in presentation order, "HH:MM:SS:FF", or "HH:MM:SS;FF" for drop-frame;
  /// empty for none. Every picture gets its own, both fields of a frame the frame's.
  std::string timecode;
  /// How timecodes count: film, non-drop-frame, drop-frame, pal, 50, 59.94, 60, film-drop, 23.98; empty for
  /// what the rate asks for.
  std::string timecodeType;
  /// Access units bring their timecodes along (AccessUnit::timecode), which count as `timecodeType` and
  /// `rate` say; not together with `timecode`. Nothing waits for them, and a unit without one stays as it is.
  bool ownTimecodes = false;
  /// Frames a second to count timecodes by, as "25", "29.97" or "30000/1001", or "nominal" for the rate that
  /// a stream of uneven pictures is made for; empty for what the description and the stream say.
  std::string rate;
  /// HEVC: true to say that its coded pictures are the fields of interlaced frames, false to say that they
  /// are progressive frames. Refused where they are not. Needs a survey.
  std::optional<bool> interlaced;
  /// Access unit delimiters and recovery points where they are missing.
  bool delimiters = false;
  bool recoveryPoints = false;  ///< SEI recovery point messages
  /// Captions of every picture; empty for none. Where the stream was surveyed and has captions,
  /// `replaceCaptions` must be set, or the editor refuses. Without a survey, of H.264 and HEVC alone, the
  /// editor finds the places of pictures itself, and what the stream has stays unless that is set.
  CaptionProvider captionProvider;
  /// Takes out the captions that the stream has; a survey is not needed for that alone.
  bool replaceCaptions = false;
  /// How many pictures precede another in coding order and follow it in presentation order, at most, as the
  /// stream says in its sequence parameter sets: where timecodes, or captions without a survey, wait for the
  /// places of pictures, they then wait no longer than a decoder that shows them. A picture that comes later
  /// than that fails. Nothing for kMostWaiting.
  std::optional<uint32_t> reorder;

  /// True if anything but captions changes.
  bool beyondCaptions() const {
    return ofSets() || remove.any() || mastering || lightLevel || !timecode.empty() || ownTimecodes ||
           interlaced || delimiters || recoveryPoints;
  }
  /// True if values of parameter sets change that the stream's pictures do not ask for.
  bool ofSets() const {
    return colour || fullRange || sampleAspect || level || highTier || timing || chromaLocation || cropping;
  }
};

/// What a first pass over a whole stream finds: the presentation order of its pictures, their pace, the
/// captions that they have, and what tells fields from frames. Some bytes for each picture are kept.
///
/// Not to be used by two threads at once while packets are added; a finished one may serve several editors in
/// several threads.
class QLNMEDIA_API StreamSurvey {
 public:
  /// Throws Error for a codec that is none of H.264, HEVC and MPEG-2.
  explicit StreamSurvey(const StreamDescription& stream);
  ~StreamSurvey();
  StreamSurvey(const StreamSurvey&) = delete;
  StreamSurvey& operator=(const StreamSurvey&) = delete;

  /// Takes the next packet in coding order, as it will be given to the editor: the same packets, each with
  /// the same bytes and times.
  void Add(const PacketView& packet);
  /// Ends the pass: Add may not be called any more.
  void Finish();

  /// What follows is known when the survey is finished.
  /// Pictures of the stream; the two fields of a frame are one.
  uint32_t pictures() const;
  /// Pictures that have captions.
  size_t captioned() const;
  /// Pictures a second, by the description where times bear it out, else by times; 0 where nothing tells it.
  double picturesPerSecond() const;
  /// False where pictures are missing, or stand much longer or shorter than most.
  bool steady() const;

  /// For the engine's own rooms.
  struct Facts;
  /// For the engine's own rooms.
  const Facts& facts() const { return *facts_; }

 private:
  std::unique_ptr<Facts> facts_;
};

/// One access unit, or both fields of a frame, as packets hold them.
struct AccessUnit {
  std::vector<uint8_t> data;  ///< in the form of the stream: lengths or start codes
  int64_t pts = kNoTime;      ///< in units of the stream's time base
  int64_t dts = kNoTime;      ///< in the same units
  bool key = false;           ///< decoding can start here
  /// Captions of this very picture, as a live source has them: they go in where the picture has none, or none
  /// that stays. They take no survey. At most captions::kMostTriplets are taken; nothing for none of its own.
  std::optional<std::vector<captions::Triplet>> captions{};
  /// Its timecode, as StreamChanges::timecode; empty for none of its own. Both fields of a frame that come in
  /// units of their own bring the same one. Needs StreamChanges::ownTimecodes.
  std::string timecode{};
};

/// An access unit that comes back.
struct EditedUnit {
  /// Times as they were. The key mark is set, if it was not, where a recovery point went in.
  AccessUnit unit;
  /// False where the bytes are those that went in.
  bool changed = false;
};

/// What an editor did so far.
struct EditCounts {
  int64_t sequenceSets = 0;         ///< sequence parameter sets changed in the stream
  int64_t privateSequenceSets = 0;  ///< those changed in the private data
  int64_t videoSets = 0;            ///< video parameter sets changed, in both
  int64_t unitsRemoved = 0;         ///< units taken out on request, in private data and stream
  int64_t messagesRemoved = 0;      ///< SEI messages taken out on request, in both
  int64_t hdrMessagesRemoved = 0;   ///< mastering display and light level messages taken out
  int64_t hdrUnits = 0;             ///< units with new ones put in
  int64_t timingsChanged = 0;       ///< HEVC picture timing messages changed
  int64_t timingsAdded = 0;         ///< and put in
  int64_t delimiters = 0;           ///< access unit delimiters put in
  int64_t recoveryPoints = 0;       ///< recovery points put in
  int64_t intraWithoutRecovery =
      0;                        ///< intra pictures left alone: nothing says that decoding can start there
  int64_t timecodes = 0;        ///< pictures that got a timecode which they did not have
  int64_t captions = 0;         ///< pictures that got captions
  int64_t captionsRemoved = 0;  ///< caption messages taken out
};

/// Edits one stream. Every failure is an Error that names `where`; the editor is of no use after one, and
/// what was pulled before stands. Objects share nothing: each may be used in a thread of its own, none in two
/// at once.
class QLNMEDIA_API StreamEditor {
 public:
  /// @param stream what is said of the stream; copied
  /// @param changes what it shall say; copied, the caption provider with it
  /// @param survey of the same stream, finished; null where `changes` need none. It must outlive the editor
  /// @param where what the text of a failure begins with, as "clip.mp4: stream 0"; may be empty
  ///
  /// Throws Error where the stream cannot be edited in that way: another codec, private data that breaks off,
  /// texts that are no timecode or rate, a rate that nobody knows, fields where frames are said to be.
  StreamEditor(const StreamDescription& stream, const StreamChanges& changes,
               const StreamSurvey* survey = nullptr, std::string where = {});
  ~StreamEditor();
  StreamEditor(const StreamEditor&) = delete;
  StreamEditor& operator=(const StreamEditor&) = delete;

  /// The private data as the edited stream needs it, in the form in which it came: changed from the
  /// beginning, before any access unit. Valid as long as the editor.
  const std::vector<uint8_t>& privateData() const;

  /// Takes the next access unit in coding order, or the next packet with both fields of a frame.
  void Push(AccessUnit unit);
  /// Gives the next access unit in coding order, as soon as nothing that follows can change it; nothing where
  /// more must be pushed first, or all was given. With timecodes, and captions without a survey, that takes
  /// up to kMostWaiting pictures, since their places in presentation order must be known, and less where
  /// StreamChanges::reorder says how far the stream reorders; else every unit comes back at once.
  std::optional<EditedUnit> Pull();
  /// Tells that no more comes: Pull then gives all that is left. Push may not be called any more.
  void Finish();

  /// Pictures that wait at most for those that follow.
  static constexpr size_t kMostWaiting = 33;

  /// What was done so far; complete when all was pulled.
  const EditCounts& counts() const;

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace qlnmedia

#endif
