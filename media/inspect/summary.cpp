// Puts the summary together: the file, its streams, and what the checks say of the pictures that were read.

#include "inspect/summary.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>

#include "check/stream_checker.h"
#include "inspect/picture_summary.h"
#include "inspect/stream.h"

namespace qlnmedia {

namespace {

std::string Joined(const std::vector<std::string>& pieces) {
  std::string text;
  for (const std::string& piece : pieces) {
    if (!piece.empty()) text += (text.empty() ? "" : ", ") + piece;
  }
  return text;
}

std::string FormatText(const MediaFile& file) {
  const std::string_view name = file.formatName();
  if (file.isIso()) {
    for (const Tag& tag : file.tags()) {
      if (tag.name != "major_brand") continue;
      std::string brand = tag.text;
      while (!brand.empty() && brand.back() == ' ') brand.pop_back();
      return brand == "qt" ? "QuickTime" : fmt::format("MP4 ({})", brand);
    }
    return "QuickTime";
  }
  if (name.substr(0, 8) == "matroska") return "Matroska or WebM";
  if (file.isTransportStream()) return "MPEG-2 transport stream";
  if (name == "h264") return "raw H.264 stream";
  if (name == "hevc") return "raw HEVC stream";
  if (name == "mpegvideo" || name == "m4v") return "raw video stream";
  return std::string(file.formatLongName());
}

std::string BitRateText(int64_t bitRate) {
  if (bitRate <= 0) return {};
  if (bitRate < 10000000) return fmt::format("{} kbit/s", (bitRate + 500) / 1000);
  return fmt::format("{:.1f} Mbit/s", static_cast<double>(bitRate) / 1e6);
}

Json PositiveOrNull(int64_t value) { return value > 0 ? Json(value) : Json(nullptr); }

// Where libavformat only guesses a length from a raw stream's size, nothing is said.
double SecondsOfFile(const MediaFile& file) { return file.isRawStream() ? 0 : file.seconds(); }

void AddFileLines(Section& summary, const MediaFile& file) {
  const double seconds = SecondsOfFile(file);
  const int64_t bitRate = seconds > 0 ? file.bitRate() : 0;
  summary.AddValue("path", file.path());
  summary.AddValue("format", std::string(file.formatName()));
  summary.AddValue("size", PositiveOrNull(file.sizeBytes()));
  summary.AddValue("duration", seconds > 0 ? Json(seconds) : Json(nullptr));
  summary.AddValue("bit_rate", PositiveOrNull(bitRate));
  summary.AddLine("Format",
                  Joined({FormatText(file), file.isPipe() ? "from a pipe" : SizeText(file.sizeBytes()),
                          seconds > 0 ? DurationText(seconds) : "", BitRateText(bitRate)}));
}

// Bit rates that a container counted. Elsewhere the number is a limit that the stream's headers say.
int64_t BitRateOf(const MediaFile& file, const MediaStream& stream) {
  if (stream.kind == StreamKind::kAudio) return stream.bitRate;
  if (file.isIso()) return stream.bitRate;
  for (const Tag& tag : stream.tags) {
    if (tag.name.starts_with("BPS")) return std::atoll(tag.text.c_str());
  }
  return 0;
}

std::string CodecOfSound(const MediaStream& stream) {
  if (stream.codecName == "aac") return "AAC";
  if (stream.codecName == "ac3") return "AC-3";
  if (stream.codecName == "eac3") return "E-AC-3";
  if (stream.codecName == "mp2") return "MPEG audio layer 2";
  if (stream.codecName == "mp3") return "MPEG audio layer 3";
  if (stream.codecName.starts_with("pcm_")) return "PCM (" + stream.codecName + ")";
  return stream.codecName;
}

void AddSound(Section& section, const MediaStream& stream) {
  section.AddValue("profile", TextOrNull(stream.profile));
  section.AddValue("sample_rate", PositiveOrNull(stream.sampleRate));
  section.AddValue("channels", PositiveOrNull(stream.channels));
  section.AddValue("channel_layout", TextOrNull(stream.channelLayout));
  section.AddValue("sample_bits", PositiveOrNull(stream.sampleBits));
  const std::string layout = stream.channelLayout.empty() ? "" : stream.channelLayout;
  section.AddLine("Codec",
                  Joined({CodecOfSound(stream), stream.profile.empty() ? "" : stream.profile + " profile"}));
  section.AddLine("Sound",
                  Joined({stream.sampleRate > 0 ? fmt::format("{} Hz", stream.sampleRate) : "",
                          stream.channels == 1  ? "1 channel"
                          : stream.channels > 1 ? fmt::format("{} channels", stream.channels)
                                                : "",
                          layout, stream.sampleBits > 0 ? fmt::format("{} bit", stream.sampleBits) : ""}));
}

// Bit rate and duration; by which numbers and words the container knows the stream.
void AddPlace(Section& section, const MediaFile& file, const MediaStream& stream) {
  const int64_t bitRate = BitRateOf(file, stream);
  double seconds = SecondsOf(stream.duration, stream.coded.timeBase);
  if (seconds <= 0) seconds = file.seconds();
  if (file.isRawStream()) seconds = 0;
  section.AddValue("bit_rate", PositiveOrNull(bitRate));
  section.AddValue("duration", seconds > 0 ? Json(seconds) : Json(nullptr));
  const std::string size = Joined({BitRateText(bitRate), seconds > 0 ? DurationText(seconds) : ""});
  if (!size.empty()) section.AddLine("Length", size);

  Json programs = Json::array();
  std::vector<std::string> words;
  if (file.isTransportStream()) words.push_back(fmt::format("PID {} (0x{:X})", stream.id, stream.id));
  if (file.isIso()) words.push_back(fmt::format("track {}", stream.id));
  for (const Program& program : file.programs()) {
    if (std::find(program.streams.begin(), program.streams.end(), stream.index) == program.streams.end())
      continue;
    programs.push_back(program.number);
    words.push_back(fmt::format("program {}{}", program.number,
                                program.name.empty() ? "" : fmt::format(" \"{}\"", program.name)));
  }
  section.AddValue("id", stream.id > 0 ? Json(stream.id) : Json(nullptr));
  section.AddValue("programs", programs);
  section.AddValue("language", TextOrNull(stream.language));
  section.AddValue("dispositions", stream.dispositions);
  section.AddValue("encrypted", stream.encrypted);
  if (!stream.language.empty()) words.push_back("language " + stream.language);
  for (const std::string& disposition : stream.dispositions) words.push_back(disposition);
  if (stream.encrypted) words.push_back("encrypted");
  if (!words.empty()) section.AddLine("Place", Joined(words));
}

void AddStreamSummary(Section& summary, const MediaFile& file, const MediaStream& stream,
                      const FirstPictures& first, const StreamCaptions& captions,
                      const std::map<unsigned, CaptionStreamFacts>& beside) {
  const std::string kind = StreamKindName(stream.kind);
  Section& section = summary.AddToList("streams", fmt::format("Stream {}: {}", stream.index, kind));
  section.AddValue("index", stream.index);
  section.AddValue("type", kind);
  section.AddValue("codec", stream.codecName);
  if (stream.kind == StreamKind::kVideo) {
    PictureSource source{file, stream};
    for (const CodedStream& coded : first.coded) {
      if (coded.index == stream.index) source.coded = &coded;
    }
    const auto mpeg2 = first.mpeg2.find(stream.index);
    const Mpeg2Facts facts = mpeg2 == first.mpeg2.end() ? Mpeg2Facts() : ReadMpeg2Facts(mpeg2->second);
    if (mpeg2 != first.mpeg2.end()) source.mpeg2 = &facts;
    if (captions.stream == stream.index) source.captions = &captions;
    AddPictureSummary(section, source);
  } else if (stream.kind == StreamKind::kAudio) {
    AddSound(section, stream);
  } else {
    constexpr uint32_t kTimecodeTag = 0x64636D74;  // "tmcd"
    const auto facts = beside.find(stream.index);
    if (facts == beside.end())
      section.AddLine("Codec", stream.tag == kTimecodeTag ? "timecode track" : stream.codecName);
    else
      AddCaptionStreamSummary(section, facts->second);
  }
  AddPlace(section, file, stream);
}

Json FindingJson(const Finding& finding) {
  return Json{{"stream", finding.stream},
              {"what", FindingWord(finding.kind)},
              {"severity", SeverityWord(finding.severity)},
              {"text", finding.text},
              {"frame", finding.frame < 0 ? Json(nullptr) : Json(finding.frame)},
              {"count", finding.count}};
}

void AddCheck(Section& summary, const MediaFile& file, const FirstPictures& first) {
  FindingList findings;
  size_t pictures = 0;
  for (const CodedStream& coded : first.coded) {
    StreamChecker checker(file.streams()[coded.index], findings);
    for (const std::vector<CodedPacket>* packets : {&coded.packets, &coded.more}) {
      for (const CodedPacket& packet : *packets)
        checker.Take({packet.data, packet.pts, packet.dts, packet.key, -1});
      pictures += packets->size();
    }
    checker.Finish();
  }
  if (first.coded.empty()) {
    summary.AddValue("check", nullptr);
    return summary.AddLine("Check", "no H.264 or HEVC pictures to check");
  }
  Json list = Json::array();
  for (const Finding& finding : findings.findings()) list.push_back(FindingJson(finding));
  summary.AddValue("check", Json{{"pictures", pictures}, {"findings", list}});
  if (list.empty())
    return summary.AddLine("Check", fmt::format("nothing found in the {} pictures that were read", pictures));
  summary.AddLine("Check", fmt::format("{} found in the {} pictures that were read:", list.size(), pictures));
  for (const Finding& finding : findings.findings())
    summary.AddLine("", fmt::format("{}: {}: {}", SeverityWord(finding.severity), FindingWord(finding.kind),
                                    finding.text));
}

}  // namespace

void AddSummary(Section& report, const MediaFile& file, const FirstPictures& first,
                const StreamCaptions& captions, const std::map<unsigned, CaptionStreamFacts>& beside) {
  Section& summary = report.AddSection("summary", file.path());
  report.MarkLast(ReportPart::kSummary);
  AddFileLines(summary, file);
  for (const MediaStream& stream : file.streams())
    AddStreamSummary(summary, file, stream, first, captions, beside);
  AddCheck(summary, file, first);
}

}  // namespace qlnmedia
