// Reads sequence, picture coding and group headers of MPEG-2.

#include "inspect/mpeg2_facts.h"

#include "units/mpeg2.h"

namespace qlnmedia {

namespace {

constexpr int kExtensionStart = 0xB5;
// extension_start_code_identifier.
constexpr int kSequenceExtension = 1;
constexpr int kPictureCodingExtension = 8;

struct Seen {
  std::optional<bool> progressiveSequence;
  size_t frames = 0;
  size_t fields = 0;
  size_t progressiveFrames = 0;
  std::string order;
};

// profile_and_level_indication (clause 8) with its escape bit, which names profile and level together.
void NameEscapedProfile(int indication, Mpeg2Facts& facts) {
  struct Named {
    int indication;
    const char* profile;
    const char* level;
  };
  static constexpr Named kNamed[] = {{0x82, "4:2:2", "High"},      {0x85, "4:2:2", "Main"},
                                     {0x8A, "Multi-view", "High"}, {0x8B, "Multi-view", "High 1440"},
                                     {0x8D, "Multi-view", "Main"}, {0x8E, "Multi-view", "Low"}};
  facts.profile = facts.level = "";
  for (const Named& named : kNamed) {
    if (named.indication != indication) continue;
    facts.profile = named.profile;
    facts.level = named.level;
  }
}

void NameProfile(int indication, Mpeg2Facts& facts) {
  if ((indication & 0x80) != 0) return NameEscapedProfile(indication, facts);
  static constexpr const char* kProfiles[] = {"",     "High",  "Spatially Scalable", "SNR Scalable",
                                              "Main", "Simple"};
  const int profile = indication >> 4 & 7;
  facts.profile = profile < 6 ? kProfiles[profile] : "";
  facts.level = "";
  switch (indication & 15) {
    case 2:
      facts.level = "HighP";
      break;
    case 4:
      facts.level = "High";
      break;
    case 6:
      facts.level = "High 1440";
      break;
    case 8:
      facts.level = "Main";
      break;
    case 10:
      facts.level = "Low";
      break;
    default:
      break;
  }
}

void TakePicture(ByteSpan extension, Seen& seen) {
  const int structure = extension[6] & 3;  // 1 top field, 2 bottom field, 3 frame
  const bool topFirst = (extension[7] & 0x80) != 0;
  const bool progressive = (extension[8] & 0x80) != 0;
  if (structure == 3) {
    ++seen.frames;
    if (progressive) ++seen.progressiveFrames;
    if (seen.order.empty() && !progressive) seen.order = topFirst ? "top field first" : "bottom field first";
  } else {
    // The first field of a frame that is coded is the first one that is shown.
    if (seen.order.empty()) seen.order = structure == 1 ? "top field first" : "bottom field first";
    ++seen.fields;
  }
}

void TakeExtension(ByteSpan extension, Mpeg2Facts& facts, Seen& seen) {
  const int kind = extension[4] >> 4;
  if (kind == kSequenceExtension && extension.size() >= 6) {
    NameProfile((extension[4] & 15) << 4 | extension[5] >> 4, facts);
    seen.progressiveSequence = (extension[5] & 8) != 0;
  }
  if (kind == kPictureCodingExtension && extension.size() >= 9) TakePicture(extension, seen);
}

}  // namespace

ClockTime ReadGroupTime(ByteSpan header) {
  const uint32_t bits = static_cast<uint32_t>(header[4]) << 24 | static_cast<uint32_t>(header[5]) << 16 |
                        static_cast<uint32_t>(header[6]) << 8 | header[7];
  ClockTime time;
  time.drop = (bits >> 31) != 0;
  time.hours = bits >> 26 & 31;
  time.minutes = bits >> 20 & 63;
  time.seconds = bits >> 13 & 63;
  time.frames = bits >> 7 & 63;
  time.whole = true;
  return time;
}

Mpeg2Facts ReadMpeg2Facts(const std::vector<Bytes>& packets) {
  Mpeg2Facts facts;
  Seen seen;
  for (const Bytes& packet : packets) {
    for (const Mpeg2Unit& unit : Mpeg2Units(packet)) {
      const ByteSpan bytes = ByteSpan(packet).subspan(unit.at, unit.size);
      if (unit.code == kMpeg2GroupStart && bytes.size() >= 8 && !facts.timecode)
        facts.timecode = ReadGroupTime(bytes);
      if (unit.code == kExtensionStart && bytes.size() >= 5) TakeExtension(bytes, facts, seen);
    }
  }
  if (!seen.progressiveSequence) return facts;
  const bool allProgressive = seen.fields == 0 && seen.frames != 0 && seen.frames == seen.progressiveFrames;
  facts.scan.type = *seen.progressiveSequence || allProgressive ? "progressive" : "interlaced";
  facts.scan.coding = seen.fields == 0 ? "frames" : seen.frames == 0 ? "fields" : "fields and frames";
  if (facts.scan.type == "interlaced") facts.scan.fieldOrder = seen.order;
  return facts;
}

}  // namespace qlnmedia
