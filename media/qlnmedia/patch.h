/// @file patch.h
/// Changes what a media file says of its streams, and leaves every coded slice as it is.
///
/// Calls share nothing: several may run at the same time, in threads of their own, on different outputs.
#ifndef QLNMEDIA_PATCH_H
#define QLNMEDIA_PATCH_H

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "qlnmedia/api.h"
#include "qlnmedia/captions.h"
#include "qlnmedia/progress.h"
#include "qlnmedia/stream_editor.h"

namespace qlnmedia {

/// Where captions go.
enum class CaptionPlace {
  kPictures,  ///< into the coded pictures of the first H.264, HEVC or MPEG-2 stream
  /// MP4 and MOV that are no fragments: into a closed caption track (`c608`) of the first video stream, of
  /// whatever codec, whose pictures stay as they are. Line 21 alone. Not with `inPlace` or for segments.
  kTrack,
  /// Transport streams: into a stream of ancillary data (SMPTE ST 2038) beside the first video stream, of
  /// whatever codec, whose pictures stay as they are. With no other change of the streams.
  kStream,
};

/// Captions that come from a file and go into one stream, or stand beside it.
struct CaptionOptions {
  std::string file;  ///< .scc, .mcc, a media file, or text to make captions of: .srt, .vtt
  /// The file's timecode that falls on the first picture; empty for its first whole hour, of text for 0.
  std::string offset;
  bool replace = false;              ///< captions that are there are taken out: the stream's, or the track
  CaptionSourceOptions source = {};  ///< which stream's, and how text becomes captions
  CaptionPlace place = CaptionPlace::kPictures;  ///< pictures, a track, or a stream beside them
  std::string language = {};  ///< of a track: three letters of ISO 639-2 ("eng"); empty for none
};

/// The changes of every H.264 and HEVC stream of a file, and the captions of one.
struct EditOptions : StreamChanges {
  std::optional<CaptionOptions> captions;  ///< nothing for none
  ProgressCallback progress;               ///< may be empty
  /// True if captions go into coded pictures.
  bool captionsIntoPictures() const { return captions && captions->place == CaptionPlace::kPictures; }
  /// True if anything is to be changed at all.
  bool any() const { return beyondCaptions() || captions; }
};

/// What PatchFile reads, writes and changes.
struct PatchOptions : EditOptions {
  std::string in;   ///< path of the file to read
  std::string out;  ///< path of the file to write, of the same kind; another file than `in`
  /// MP4 and MOV: `in` itself is changed, where the change fits, and `out` is not looked at. A journal beside
  /// the file ("NAME.qlnmedia-journal") makes that safe against whatever ends the work: the next run in
  /// place, or RecoverFile, puts the file back.
  bool inPlace = false;
  /// The initialization segment of `in`, where that is a media segment alone; else empty. It is only read.
  std::string initialization;
  /// `in` is a folder, an HLS playlist or a DASH manifest of one stream's segments, which are patched as one,
  /// and `out` the folder to write them to with their initialization segment; it must not exist, or be empty.
  bool segments = false;
  /// MP4 and MOV that are no fragments, with `timecode`: the timecode track that the first H.264 or HEVC
  /// stream names says the same, and is put in where there is none. Not with `inPlace` or for segments.
  bool timecodeTrack = false;
  /// Transport streams: what comes in takes null packets and stuffing only, so that a constant rate stays
  /// one; refused where there is too little of them.
  bool keepRate = false;
  bool dryRun = false;            ///< everything is done but writing; `out` is not looked at
  UnfinishedCallback unfinished;  ///< hears of what is made beside `out`; may be empty
  bool verify = false;  ///< the output is read back and its slices and times held against the input's
};

/// What a run changed, one line each, as "stream 0: 12 parameter sets, avcC and container colour".
struct PatchResult {
  std::vector<std::string> lines;  ///< in the order of the streams
};

/// Patches a file. The output gets its name when it is whole; it replaces a file of that name.
/// @throws Error      where it cannot be done, saying why; `out` then does not exist, or is what it was
/// @throws Cancelled  where `progress` calls it off; the same holds
QLNMEDIA_API PatchResult PatchFile(const PatchOptions& options);

/// The ends of a patch of a stream that is read as it comes and never is a whole file.
struct LiveEnds {
  int input = -1;   ///< descriptor that is read, once and from front to back; stays the caller's
  int output = -1;  ///< descriptor that is written; -1 for the file PatchOptions::out
  /// Hears at once, in one line, of damage and of what waits; must not be empty.
  std::function<void(const std::string& line)> report;
};

/// Patches a raw H.264 or HEVC stream, a transport stream or Matroska picture by picture: each goes out as
/// soon as the next one begins, or, with timecodes and captions, as soon as its place in presentation order
/// is known. What nothing asks for goes out as it came, and so does what is damaged, which `report` hears of.
/// Memory does not grow with the stream. `options.in` is what failures call the input, `options.out` the
/// output. Where the reader of the output goes away the work ends without a failure.
/// @throws Error      before the first byte is written where the options need a whole file, or the stream
///                    cannot be patched in that way; later where the ends fail
/// @throws Cancelled  where `progress` calls it off
QLNMEDIA_API PatchResult PatchLive(const PatchOptions& options, const LiveEnds& ends);

/// What RecoverFile found.
enum class Recovery {
  kNothing,    ///< no change of the file was cut off
  kUntouched,  ///< one was, before the first byte of the file was overwritten
  kPutBack,    ///< one was; the file is as it was before
};

/// Puts a file back as it was, where a change in place was cut off.
/// @throws Error where that cannot be done, or another run is changing the file
QLNMEDIA_API Recovery RecoverFile(const std::string& path);

}  // namespace qlnmedia

#endif
