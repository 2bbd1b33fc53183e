/// @file html_report.h
/// What a media file says, drawn on one page that needs nothing else: findings, streams, a time line over all
/// pictures, parameter sets, captions.
///
/// Functions may run in several threads at once, each with an output of its own.
#ifndef QLNMEDIA_HTML_REPORT_H
#define QLNMEDIA_HTML_REPORT_H

#include <string>
#include <vector>

#include "qlnmedia/api.h"
#include "qlnmedia/check.h"
#include "qlnmedia/progress.h"

namespace qlnmedia {

/// Reads a whole file once and writes a page about it: HTML with all that it needs inside, to be opened from
/// disk, mailed or printed.
///
/// @param path      a media file with video; no pipe
/// @param out       the page; one that is there is replaced when the new one is whole
/// @param progress  may be empty
/// @param unfinished is told of the page while it is not whole; may be empty
/// @return the findings of CheckFile
/// @throws NotApplicable for a file that is empty or has no video
/// @throws Error      for one that is missing or is no media, where the page cannot be written, where `out`
/// is
///                    `path`, and in a build without charts; nothing is written then
/// @throws Cancelled  where `progress` calls it off; nothing is written then
QLNMEDIA_API std::vector<Finding> WriteHtmlReport(const std::string& path, const std::string& out,
                                                  const ProgressCallback& progress = {},
                                                  const UnfinishedCallback& unfinished = {});

}  // namespace qlnmedia

#endif
