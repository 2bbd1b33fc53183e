// The lines of the summary that are about moving pictures.
#ifndef MEDIA_INSPECT_PICTURE_SUMMARY_H
#define MEDIA_INSPECT_PICTURE_SUMMARY_H

#include "base/report.h"
#include "container/media_file.h"
#include "inspect/captions.h"
#include "inspect/coded_frames.h"
#include "inspect/mpeg2_facts.h"

namespace qlnmedia {

// All that is known of one stream of pictures.
struct PictureSource {
  const MediaFile& file;
  const MediaStream& stream;
  const CodedStream* coded = nullptr;  // H.264 and HEVC
  const Mpeg2Facts* mpeg2 = nullptr;
  const StreamCaptions* captions = nullptr;  // of this stream
};

// Codec, picture, scan, rate, colour, HDR, timecode, captions.
void AddPictureSummary(Section& section, const PictureSource& source);

}  // namespace qlnmedia

#endif
