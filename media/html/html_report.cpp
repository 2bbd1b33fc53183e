// Makes the page of a file: one pass for check and for all that is drawn, then the page piece by piece.

#include "qlnmedia/html_report.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <memory>

#include "base/error.h"
#include "base/library_messages.h"
#include "base/progress.h"
#include "base/text_file.h"
#include "check/file_checker.h"
#include "container/coded_stream.h"
#include "html/page_text.h"
#include "html/report_json.h"
#include "html/safe_json.h"
#include "html/stream_recorder.h"
#include "qlnmedia/inspect.h"

namespace qlnmedia {

namespace {

using html::StreamRecorder;
using Recorders = std::vector<std::unique_ptr<StreamRecorder>>;  // null for what is no coded video

Recorders MakeRecorders(const MediaFile& file, const std::vector<MediaStream>& streams) {
  Recorders recorders;
  for (const MediaStream& stream : streams) {
    const bool coded = stream.coded.codec != VideoCodec::kOther && stream.movingPictures;
    if (!coded) {
      recorders.push_back(nullptr);
      continue;
    }
    const StreamDescription description = DescribeStream(file, stream.index);
    recorders.push_back(std::make_unique<StreamRecorder>(stream, description, OwnOrder(file, description)));
  }
  return recorders;
}

void ReadAll(MediaFile& file, FileChecker& checker, Recorders& recorders, const ProgressCallback& progress) {
  Progress meter(progress, "reading", file.sizeBytes());
  for (MediaPacket packet; file.Next(packet);) {
    meter.At(packet.view.position);
    checker.Take(packet);
    if (packet.stream >= recorders.size() || recorders[packet.stream] == nullptr) continue;
    StreamRecorder& recorder = *recorders[packet.stream];
    const int64_t frames = checker.frames(packet.stream);
    recorder.Take(packet.view, frames > 0 ? frames - 1 : recorder.packets());
  }
  meter.Done();
  for (const auto& recorder : recorders) {
    if (recorder != nullptr) recorder->Finish();
  }
}

// The packet that a finding is about; -1 where it is about a stream as a whole.
int64_t PacketOf(const Finding& finding, const Recorders& recorders) {
  if (finding.stream >= recorders.size() || recorders[finding.stream] == nullptr || finding.frame < 0)
    return -1;
  const StreamRecorder& recorder = *recorders[finding.stream];
  return finding.kind == FindingKind::kCaptions ? recorder.PacketOfPlace(finding.frame)
                                                : recorder.PacketOfFrame(finding.frame);
}

// Most severe first; the order in which they showed otherwise.
Json FindingsJson(std::vector<Finding> findings, const Recorders& recorders) {
  std::stable_sort(findings.begin(), findings.end(),
                   [](const Finding& a, const Finding& b) { return a.severity < b.severity; });
  Json list = Json::array();
  for (const Finding& finding : findings)
    list.push_back({{"stream", finding.stream},
                    {"what", FindingWord(finding.kind)},
                    {"severity", SeverityWord(finding.severity)},
                    {"text", finding.text},
                    {"picture", PacketOf(finding, recorders)},
                    {"count", finding.count}});
  return list;
}

// What was read by whom.
Json ReadersJson(const MediaFile& file, const Recorders& recorders) {
  Json list = Json::array();
  list.push_back({"Container, packets and their times",
                  fmt::format("libavformat, as {} ({})", file.formatLongName(), file.formatName())});
  if (file.isIso()) list.push_back({"Edit lists, sample descriptions, boxes", "qlnmedia"});
  const bool coded = std::any_of(recorders.begin(), recorders.end(),
                                 [](const auto& recorder) { return recorder != nullptr; });
  if (!coded) return list;
  list.push_back({"Configuration records, units, SEI, parameter sets, slice heads",
                  "qlnmedia, by the published syntax"});
  list.push_back({"Presentation order, timecodes, coded picture buffer", "qlnmedia"});
  list.push_back({"Captions", "qlnmedia (CTA-608, CTA-708)"});
  return list;
}

void WritePage(TextFileWriter& page, const Json& data, const Recorders& recorders) {
  page.Write(html::PageHead());
  page.Write("<script type=\"application/json\" id=\"data\">");
  page.Write(html::SafeJson(data));
  page.Write("</script>\n");
  for (const auto& recorder : recorders) {
    if (recorder == nullptr) continue;
    page.Write(fmt::format("<script type=\"text/plain\" id=\"units-{}\">", recorder->stream().index));
    for (const std::string& block : recorder->units()) page.Write(block + "\n");
    page.Write("</script>\n");
  }
  page.Write(html::PageTail());
  page.Finish();
}

bool IsSameFile(const std::string& a, const std::string& b) {
  std::error_code error;
  return std::filesystem::equivalent(a, b, error) && !error;
}

}  // namespace

std::vector<Finding> WriteHtmlReport(const std::string& path, const std::string& out,
                                     const ProgressCallback& progress, const UnfinishedCallback& unfinished) {
  if (html::PageHead().empty())
    throw Error(out, "cannot be made: this build has no charts",
                "install the package libjs-dygraphs and build again");
  if (IsSameFile(path, out)) throw Error(out, "is the file that the page would be about", "name another one");
  const MessageSink messages;  // findings say it better
  const MediaInput input(path);
  input.RequireFile("a page");
  const Report report = InspectFile(path);
  MediaFile file(input);
  file.RequireVideo();
  FileChecker checker(file);
  Recorders recorders = MakeRecorders(file, checker.streams());
  ReadAll(file, checker, recorders, progress);
  const std::optional<unsigned> captioned = checker.captioned();
  const bool surveyed = captioned && recorders[*captioned] != nullptr;
  std::vector<Finding> findings = checker.Finish(surveyed ? &recorders[*captioned]->captions() : nullptr);
  Json data{{"file", std::filesystem::path(path).filename().string()},
            {"findings", FindingsJson(findings, recorders)},
            {"report", html::ReportJson(report.root())},
            {"readers", ReadersJson(file, recorders)},
            {"block", html::UnitBlocks::kPictures},
            {"streams", Json::array()}};
  for (const auto& recorder : recorders) {
    if (recorder != nullptr) data["streams"].push_back(recorder->ToJson());
  }
  TextFileWriter page(out, unfinished);
  WritePage(page, data, recorders);
  return findings;
}

}  // namespace qlnmedia
