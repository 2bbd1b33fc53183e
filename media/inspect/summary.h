// The few lines at the head of a report: what is asked most of a file and of each of its streams.
#ifndef MEDIA_INSPECT_SUMMARY_H
#define MEDIA_INSPECT_SUMMARY_H

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "base/report.h"
#include "container/media_file.h"
#include "inspect/caption_streams.h"
#include "inspect/captions.h"
#include "inspect/coded_frames.h"
#include "inspect/mpeg2_facts.h"
#include "qlnmedia/check.h"

namespace qlnmedia {

// Adds the section "summary". `captions` are those of the stream that may have some, `beside` what streams of
// captions hold.
void AddSummary(Section& report, const MediaFile& file, const FirstPictures& first,
                const StreamCaptions& captions, const std::map<unsigned, CaptionStreamFacts>& beside = {});

}  // namespace qlnmedia

#endif
