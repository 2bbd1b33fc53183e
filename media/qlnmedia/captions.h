/// @file captions.h
/// The closed captions (CTA-608 and CTA-708) that an H.264, HEVC or MPEG-2 stream carries, or a caption file:
/// surveyed, decoded to text, and written as caption files; and captions made of timed text.
///
/// Of a media file the first such stream counts. A path that ends in .scc, .mcc, .srt, .vtt or .anc is a
/// caption file: of timed text (.srt, .vtt) pop-on captions of line 21 are made, each sent ahead so that it
/// shows on the picture of its time. Functions may run in several threads at once.
#ifndef QLNMEDIA_CAPTIONS_H
#define QLNMEDIA_CAPTIONS_H

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "qlnmedia/api.h"
#include "qlnmedia/progress.h"

namespace qlnmedia {

/// One caption as it stands on the screen.
struct CaptionLine {
  double begin = 0;  ///< seconds from the first picture
  double end = 0;    ///< seconds; the moment when it goes
  std::string text;  ///< UTF-8; lines separated by '\n'
};

/// One service with its captions in the order of their times.
struct CaptionService {
  /// "CC1" to "CC4", "T1" to "T4", "XDS" for line 21; "service 1" to "service 63" for digital captions.
  std::string name;
  std::vector<CaptionLine> lines;  ///< empty for text services and extended data, which are not decoded
};

/// What a file carries.
struct FileCaptions {
  unsigned stream = 0;                   ///< its index in the file
  uint64_t pictures = 0;                 ///< of the stream
  uint64_t captioned = 0;                ///< pictures with captions, padding included
  std::vector<CaptionService> services;  ///< none where there is nothing but padding
};

/// How a file's pictures are timed and counted, where the file is not to be asked.
struct CaptionTiming {
  /// Pictures a second as "25", "29.97" or "30000/1001", or "nominal" for the rate that a file of uneven
  /// pictures is made for; empty for what the file says.
  std::string rate;
  /// Of .scc and .mcc: how labels count, as StreamChanges::timecodeType; drop-frame labels go by time. Empty
  /// for what the stream's own timecode says, and for counting every number where it has none.
  std::string timecodeType;
  /// Of .scc and .mcc: the label of the first picture, "HH:MM:SS:FF", ";" for drop-frame ones; empty for
  /// 00:00:00:00.
  std::string start;
};

/// What captions are taken from, where a path alone does not say it, and how text becomes captions.
struct CaptionSourceOptions {
  /// Of a media file the stream, by its index ("2"), whose captions are taken, where several have some; empty
  /// for the only one.
  std::string stream;
  /// Of .srt and .vtt: lines that are too long for a row are broken, captions that cannot be sent in time are
  /// shifted, and those that overlap are cut; else these are failures.
  bool fit = false;
  /// Of the same: characters that line 21 lacks are replaced by those that come nearest; else they are
  /// failures.
  bool transliterate = false;
  /// Takes a line of text for each thing that was done, or that is to be done before captions can be made;
  /// may be empty.
  std::function<void(const std::string& line)> told;
};

/// Reads the captions of a file.
///
/// @param path      the file
/// @param progress  may be empty; two passes are told one after the other
/// @param timing    its rate; labels have no part in it
/// @param source    where the captions are, and how text becomes captions
/// @throws Error      for a file that cannot be read, for one whose stream has no captions, and for a rate
/// that
///                    is none or contradicts the file
/// @throws Cancelled  where `progress` calls it off
QLNMEDIA_API FileCaptions ReadFileCaptions(const std::string& path, const ProgressCallback& progress = {},
                                           const CaptionTiming& timing = {},
                                           const CaptionSourceOptions& source = {});

/// The lines of one service of `captions`.
///
/// @param captions as ReadFileCaptions gives them
/// @param path     the file, for the message
/// @param service  as CaptionService::name, in letters of either case, digital ones also by number
///                 alone; empty for the first service
///                 that shows text
/// @return none where `service` is empty and no service shows text
/// @throws Error where there is no such service
QLNMEDIA_API std::vector<CaptionLine> LinesOfService(const FileCaptions& captions, const std::string& path,
                                                     const std::string& service);

/// The kinds of caption files.
enum class CaptionFileKind {
  kMcc,   ///< .mcc: all services, packet by packet
  kScc,   ///< .scc: line 21, field 1
  kSrt,   ///< .srt: the text of one service with times
  kText,  ///< .txt: a line for each caption
  kVtt,   ///< .vtt: the text of one service with times, places and colours
  kTtml,  ///< .ttml: the same, in the text profile of IMSC 1
  kAnc,   ///< .anc: all services, packet by packet in elements of SMPTE ST 436 as MXF takes them
};

/// The kind that the ending of a file's name says; nothing for other endings.
QLNMEDIA_API std::optional<CaptionFileKind> CaptionFileKindOf(const std::string& path);

/// The captions of a media file as the text of a caption file of that kind; what is said of WriteCaptionFile
/// holds of the rest.
QLNMEDIA_API std::string CaptionFileText(const std::string& in, CaptionFileKind kind,
                                         const std::string& service = {},
                                         const ProgressCallback& progress = {},
                                         const CaptionTiming& timing = {},
                                         const CaptionSourceOptions& source = {});

/// Writes the captions of a media file as a caption file, which is there when it is whole and not before.
///
/// @param in        the media file
/// @param out       the caption file; its ending says its kind
/// @param service   of text as for LinesOfService; empty for .mcc, .scc and .anc
/// @param progress  may be empty
/// @param timing    rate and labels
/// @param source    as for ReadFileCaptions
/// @param unfinished hears of what is made beside `out`; may be empty
/// @throws Error      for an ending or a rate for which there are no such files, a way of counting that is
/// not
///                    theirs, a file without captions or without the service, and where `out` cannot be
///                    written; what was there then stays
/// @throws Cancelled  where `progress` calls it off
QLNMEDIA_API void WriteCaptionFile(const std::string& in, const std::string& out,
                                   const std::string& service = {}, const ProgressCallback& progress = {},
                                   const CaptionTiming& timing = {}, const CaptionSourceOptions& source = {},
                                   const UnfinishedCallback& unfinished = {});

/// Captions as the text of an .srt file.
QLNMEDIA_API std::string SrtText(const std::vector<CaptionLine>& lines);
/// Captions as a line each: its times and its text on one line.
QLNMEDIA_API std::string CaptionText(const std::vector<CaptionLine>& lines);

}  // namespace qlnmedia

#endif
