/// @file caption_file.h
/// Caption files (.scc, .mcc) as the triplets of pictures, such triplets as files, and as text.
///
/// Functions may run in several threads at once. No file is opened.
#ifndef QLNMEDIA_CAPTION_FILE_H
#define QLNMEDIA_CAPTION_FILE_H

#include <cstdint>
#include <string>
#include <vector>

#include "qlnmedia/api.h"
#include "qlnmedia/caption_triplet.h"
#include "qlnmedia/captions.h"
#include "qlnmedia/error.h"
#include "qlnmedia/rational.h"

namespace qlnmedia {

/// What one picture carries.
struct CaptionPicture {
  int64_t number = 0;                       ///< of the picture, counted from the label 00:00:00:00
  std::vector<captions::Triplet> triplets;  ///< in their order, captions::kMostTriplets at most
};

/// Pictures with captions, in the order of their numbers.
struct CaptionPictureList {
  Rational rate;                         ///< pictures a second, one of the eight that caption packets know
  bool dropFrame = false;                ///< labels leave numbers out
  std::vector<CaptionPicture> pictures;  ///< those that carry captions alone
};

/// Reads the text of a .scc or .mcc file, told apart by their headings.
/// @param text the whole file
/// @param where what the text of a failure begins with
/// @throws Error for any other text, damaged packets, times that go back, and files without captions
QLNMEDIA_API CaptionPictureList ParseCaptionFile(const std::string& text, const std::string& where = {});

/// The text of a .mcc or .scc file. Labels of .scc count 30 numbers a second, and hold line 21 field 1 alone.
/// @throws Error for another kind, a rate that is none of the eight, drop-frame labels where the rate has
/// none, numbers that do not rise or leave the day, and pictures with more than captions::kMostTriplets
QLNMEDIA_API std::string CaptionFileText(const CaptionPictureList& list, CaptionFileKind kind);

/// The text of each service, those of line 21 first. Times are seconds from number 0.
/// @throws Error as CaptionFileText, and where line 21 cannot be decoded here
QLNMEDIA_API std::vector<CaptionService> DecodeCaptionPictures(const CaptionPictureList& list);

}  // namespace qlnmedia

#endif
