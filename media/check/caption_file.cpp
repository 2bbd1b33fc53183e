// Reads caption files line by line, without stopping at faults.

#include "check/caption_file.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdint>
#include <map>
#include <optional>
#include <utility>
#include <vector>

#include "captions/cdp.h"
#include "captions/mcc_file.h"
#include "captions/pop_on_schedule.h"
#include "captions/text_lines.h"
#include "captions/what_it_is.h"
#include "check/caption_packets.h"
#include "container/caption_source.h"

namespace qlnmedia {

namespace {

using captions::TextLines;

// Faults by their text; each is told once, with its first line.
class Faults {
 public:
  explicit Faults(FindingList& findings) : findings_(findings) {}
  void Add(int line, FindingKind kind, const std::string& what, Severity severity = Severity::kError) {
    const auto [place, isNew] = places_.try_emplace({kind, what}, faults_.size());
    if (isNew) faults_.push_back({line, kind, severity, what, 0});
    ++faults_[place->second].count;
  }
  TellFault teller() {
    return [this](int64_t place, FindingKind kind, const std::string& what, Severity severity) {
      Add(static_cast<int>(place), kind, what, severity);
    };
  }
  void Tell() {
    std::stable_sort(faults_.begin(), faults_.end(),
                     [](const Fault& a, const Fault& b) { return a.line < b.line; });
    for (const Fault& fault : faults_) {
      Finding finding;
      finding.kind = fault.kind;
      finding.severity = fault.severity;
      finding.text = fault.line > 0 ? TextLines::PlaceOf(fault.line, fault.what) : fault.what;
      finding.count = fault.count;
      findings_.Add(std::move(finding));
    }
  }

 private:
  struct Fault {
    int line;
    FindingKind kind;
    Severity severity;
    std::string what;
    int64_t count;
  };
  FindingList& findings_;
  std::map<std::pair<FindingKind, std::string>, size_t> places_;
  std::vector<Fault> faults_;
};

// Labels as they follow each other.
class Labels {
 public:
  Labels(Faults& faults, int nominal) : faults_(faults), nominal_(nominal) {}

  // The frame of a label; nothing for one that is none, does not exist, or lies in front of the last one.
  std::optional<int64_t> Take(int line, std::string_view text, std::optional<bool> dropFrame) {
    bool marked = false;
    const std::optional<captions::Timecode> label = captions::ParseTimecode(text, &marked);
    if (!label) {
      faults_.Add(line, FindingKind::kDamage, "no timecode");
      return {};
    }
    if (!dropFrame) {
      if (!dropFrame_) dropFrame_ = marked;
      if (marked != *dropFrame_)
        faults_.Add(line, FindingKind::kTimecode, "drop-frame and other timecode in one file");
      dropFrame = marked;
    }
    const std::optional<int64_t> frame = captions::PictureOf(*label, nominal_, *dropFrame);
    if (!frame) {
      faults_.Add(
          line, FindingKind::kTimecode,
          fmt::format("a timecode that does not exist{}", *dropFrame ? " in drop-frame counting" : ""));
      return {};
    }
    if (*frame < last_) {
      faults_.Add(line, FindingKind::kTimecode, "the time goes back");
      return {};
    }
    last_ = *frame;
    return frame;
  }

 private:
  Faults& faults_;
  int nominal_;
  std::optional<bool> dropFrame_;  // of the first label
  int64_t last_ = -1;
};

void CheckScc(std::string_view text, Faults& faults) {
  constexpr int kNominal = 30;
  TextLines lines(text);
  std::string_view line;
  while (lines.Next(&line) && TextLines::SaysNothing(line)) {
  }
  if (line != "Scenarist_SCC V1.0")
    faults.Add(lines.number(), FindingKind::kDamage,
               "not the heading of a Scenarist file" + captions::WhatItSeems(text));
  Labels labels(faults, kNominal);
  PairCheck pairs(faults.teller(), 1);
  int64_t sent = 0;  // the frame behind the last pair
  int sentLine = 0;
  while (lines.Next(&line)) {
    if (TextLines::SaysNothing(line)) continue;
    const bool goesOn = sentLine != 0 && line.find(':') == std::string_view::npos;
    if (!goesOn) {
      const size_t end = std::min(line.find_first_of(" \t"), line.size());
      const std::optional<int64_t> frame = labels.Take(lines.number(), line.substr(0, end), {});
      line = TextLines::Trimmed(line.substr(end));
      if (frame && sentLine != 0 && *frame < sent)
        faults.Add(
            lines.number(), FindingKind::kCaptions,
            fmt::format("begins {} frames before the pairs of line {} are sent", sent - *frame, sentLine),
            Severity::kWarning);
      if (frame) sent = std::max(sent, *frame);
      sentLine = lines.number();
    }
    while (!line.empty()) {
      const size_t end = std::min(line.find_first_of(" \t"), line.size());
      const std::string_view group = line.substr(0, end);
      line = TextLines::Trimmed(line.substr(end));
      const std::optional<captions::Bytes> bytes =
          group.size() == 4 ? captions::ExpandAnc(group) : std::nullopt;
      ++sent;
      if (bytes && bytes->size() == 2)
        pairs.Take(lines.number(), bytes->front(), bytes->back());
      else
        faults.Add(lines.number(), FindingKind::kDamage, "not a group of four hexadecimal digits");
    }
  }
  pairs.Finish();
  if (sentLine == 0) faults.Add(0, FindingKind::kDamage, "holds no captions");
}

// The packets of a .mcc file.
class MccCheck {
 public:
  MccCheck(Faults& faults, const captions::MccFile& head)
      : faults_(faults), head_(head), labels_(faults, head.nominal) {}

  void Take(int number, std::string_view line) {
    const size_t end = std::min(line.find_first_of(" \t"), line.size());
    std::string_view label = line.substr(0, end);
    label = label.substr(0, 11);  // field and line behind it
    const std::optional<int64_t> frame = labels_.Take(number, label, head_.dropFrame);
    const std::optional<captions::Bytes> anc = captions::ExpandAnc(TextLines::Trimmed(line.substr(end)));
    if (!anc) return faults_.Add(number, FindingKind::kDamage, "not hexadecimal digits and shorthand");
    if (anc->size() >= 2 && ((*anc)[0] != 0x61 || (*anc)[1] != 0x01)) return;  // other packets
    std::string reason;
    const std::optional<captions::Bytes> cdp = captions::UnwrapAnc(*anc, &reason);
    const std::optional<captions::CaptionPacket> packet =
        cdp ? captions::ReadCdp(*cdp, &reason) : std::nullopt;
    if (!packet) {
      // What stands in a damaged packet is not known; its counter is not missed.
      packets_.Skip();
      return faults_.Add(number, FindingKind::kDamage, reason);
    }
    TakePacket(number, frame, *packet);
  }
  void Finish() {
    packets_.Finish();
    if (!met_) faults_.Add(0, FindingKind::kDamage, "holds no captions");
  }

 private:
  void TakePacket(int number, std::optional<int64_t> frame, const captions::CaptionPacket& packet) {
    met_ = true;
    const captions::RateInfo& rate = captions::InfoOf(packet.rate);
    if (rate.nominal != head_.nominal && rate.nominal != 2 * head_.nominal)
      faults_.Add(number, FindingKind::kRate,
                  fmt::format("a packet of {} pictures a second, and the file's labels count {}", rate.name,
                              head_.nominal),
                  Severity::kWarning);
    const bool more = frame && lastFrame_ == frame && rate.nominal == head_.nominal;
    if (more)
      faults_.Add(number, FindingKind::kCaptions, "a second packet for one picture", Severity::kWarning);
    lastFrame_ = frame;
    packets_.Take(number, packet);
  }

  Faults& faults_;
  const captions::MccFile& head_;
  Labels labels_;
  CaptionPacketCheck packets_{faults_.teller()};
  std::optional<int64_t> lastFrame_;
  bool met_ = false;
};

void CheckMcc(std::string_view text, Faults& faults) {
  // The head alone, which must be right for anything behind it to be judged.
  std::string head;
  std::vector<std::pair<int, std::string>> packets;
  TextLines lines(text);
  for (std::string_view line; lines.Next(&line);) {
    if (TextLines::SaysNothing(line)) continue;
    const bool digits = std::all_of(line.begin(), line.end(), [](char c) {
      return captions::HexDigit(c) >= 0 || (c >= 'G' && c <= 'Z');
    });
    if (line.find('=') != std::string_view::npos)
      head += std::string(line) + "\n";
    else if (digits && !packets.empty())
      packets.back().second += line;  // a packet that was broken over several lines
    else
      packets.emplace_back(lines.number(), line);
  }
  std::string reason;
  const std::optional<captions::MccFile> file = captions::ReadMcc(head, &reason);
  if (!file)
    return faults.Add(0, FindingKind::kDamage,
                      "the head of the file is none: " + reason + captions::WhatItSeems(text));
  MccCheck check(faults, *file);
  for (const auto& [number, line] : packets) check.Take(number, line);
  check.Finish();
}

void CheckCues(std::string_view text, Faults& faults) {
  std::string reason;
  std::vector<captions::CueProblem> problems;
  if (!captions::MakeCaptionTrack(text, captions::Rate::k29_97, {}, &problems, &reason))
    return faults.Add(0, FindingKind::kDamage, reason);
  for (const captions::CueProblem& problem : problems)
    faults.Add(problem.line, FindingKind::kCaptions, problem.what, Severity::kWarning);
}

}  // namespace

void CheckCaptionFile(const std::string& path, std::string_view text, FindingList& findings) {
  Faults faults(findings);
  const std::string_view ending =
      std::string_view(path).substr(path.size() - std::min<size_t>(path.size(), 4));
  if (IsCueFile(path))
    CheckCues(text, faults);
  else if (ending == ".mcc" || ending == ".MCC")
    CheckMcc(text, faults);
  else
    CheckScc(text, faults);
  faults.Tell();
}

}  // namespace qlnmedia
