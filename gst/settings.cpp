// The properties, one row each.

#include "settings.h"

#include <optional>

#include "qlnmedia/stream_values.h"

namespace qlngst {

namespace {

enum Property : guint {
  kColour = 1,
  kRange,
  kMasteringDisplay,
  kLightLevel,
  kDelimiters,
  kRecoveryPoints,
  kTimecodeSource,
  kTimecode,
  kCaptions,
  kReplaceCaptions,
  kRemoveCaptionMeta,
};

constexpr auto kFlags =
    static_cast<GParamFlags>(G_PARAM_READWRITE | G_PARAM_STATIC_STRINGS | GST_PARAM_MUTABLE_PLAYING);

GType RangeType() {
  static const GEnumValue values[] = {{static_cast<int>(Range::kKeep), "As the stream says", "keep"},
                                      {static_cast<int>(Range::kLimited), "Limited range", "limited"},
                                      {static_cast<int>(Range::kFull), "Full range", "full"},
                                      {0, nullptr, nullptr}};
  static const GType type = g_enum_register_static("QlnEditRange", values);
  return type;
}

GType TimecodeSourceType() {
  static const GEnumValue values[] = {
      {static_cast<int>(TimecodeSource::kNone), "No timecodes", "none"},
      {static_cast<int>(TimecodeSource::kMeta), "GstVideoTimeCodeMeta of each buffer", "meta"},
      {static_cast<int>(TimecodeSource::kRunningTime), "The running time of each buffer", "running-time"},
      {static_cast<int>(TimecodeSource::kStart), "Counted from a start value in presentation order", "start"},
      {0, nullptr, nullptr}};
  static const GType type = g_enum_register_static("QlnEditTimecodeSource", values);
  return type;
}

void InstallText(GObjectClass* gobjectClass, Property number, const char* name, const char* nick,
                 const char* text, const char* initial = nullptr) {
  g_object_class_install_property(gobjectClass, number,
                                  g_param_spec_string(name, nick, text, initial, kFlags));
}

void InstallFlag(GObjectClass* gobjectClass, Property number, const char* name, const char* nick,
                 const char* text) {
  g_object_class_install_property(gobjectClass, number,
                                  g_param_spec_boolean(name, nick, text, FALSE, kFlags));
}

// The member that holds a text, or a flag; null where the number stands for another one.
std::string* TextOf(Settings& settings, guint number) {
  switch (number) {
    case kColour:
      return &settings.colour;
    case kMasteringDisplay:
      return &settings.masteringDisplay;
    case kLightLevel:
      return &settings.lightLevel;
    case kTimecode:
      return &settings.timecode;
    default:
      return nullptr;
  }
}

bool* FlagOf(Settings& settings, guint number) {
  switch (number) {
    case kDelimiters:
      return &settings.delimiters;
    case kRecoveryPoints:
      return &settings.recoveryPoints;
    case kCaptions:
      return &settings.captions;
    case kReplaceCaptions:
      return &settings.replaceCaptions;
    case kRemoveCaptionMeta:
      return &settings.removeCaptionMeta;
    default:
      return nullptr;
  }
}

}  // namespace

void InstallProperties(GObjectClass* gobjectClass) {
  InstallText(gobjectClass, kColour, "colour", "Colour",
              "Colour that the stream shall say: bt709, bt601-525, bt601-625, bt2020-pq, bt2020-hlg, p3-pq, "
              "or PRIMARIES:TRANSFER:MATRIX in codes of ITU-T H.273; empty to leave it");
  g_object_class_install_property(
      gobjectClass, kRange,
      g_param_spec_enum("range", "Range", "Range of samples that the stream shall say", RangeType(),
                        static_cast<int>(Range::kKeep), kFlags));
  InstallText(gobjectClass, kMasteringDisplay, "mastering-display", "Mastering display",
              "Mastering display of HDR: p3, bt2020, or G(x,y)B(x,y)R(x,y)WP(x,y)L(max,min) in units of "
              "0.00002 and 0.0001 cd/m2; empty to leave it");
  InstallText(gobjectClass, kLightLevel, "light-level", "Content light level",
              "MaxCLL,MaxFALL in cd/m2; empty to leave it");
  InstallFlag(gobjectClass, kDelimiters, "delimiters", "Delimiters",
              "Put access unit delimiters where they are missing");
  InstallFlag(gobjectClass, kRecoveryPoints, "recovery-points", "Recovery points",
              "Put recovery points where decoding can start and nothing says so");
  g_object_class_install_property(
      gobjectClass, kTimecodeSource,
      g_param_spec_enum("timecode-source", "Timecode source", "Where the timecode of each picture comes from",
                        TimecodeSourceType(), static_cast<int>(TimecodeSource::kNone), kFlags));
  InstallText(gobjectClass, kTimecode, "timecode", "Timecode",
              "HH:MM:SS:FF, with ; in front of the frames for drop-frame: of the first picture shown "
              "(timecode-source=start), or of running time 0 (running-time)",
              "00:00:00:00");
  InstallFlag(gobjectClass, kCaptions, "captions", "Captions",
              "Put the captions of each buffer's GstVideoCaptionMeta into its picture");
  InstallFlag(gobjectClass, kReplaceCaptions, "replace-captions", "Replace captions",
              "Take out the captions that pictures have");
  InstallFlag(gobjectClass, kRemoveCaptionMeta, "remove-caption-meta", "Remove caption meta",
              "Take GstVideoCaptionMeta off the buffers that go out");
}

bool SetProperty(Settings& settings, guint number, const GValue* value) {
  if (std::string* const text = TextOf(settings, number)) {
    const gchar* const given = g_value_get_string(value);
    *text = given == nullptr ? "" : given;
  } else if (bool* const flag = FlagOf(settings, number)) {
    *flag = g_value_get_boolean(value) != FALSE;
  } else if (number == kRange) {
    settings.range = static_cast<Range>(g_value_get_enum(value));
  } else if (number == kTimecodeSource) {
    settings.timecodeSource = static_cast<TimecodeSource>(g_value_get_enum(value));
  } else {
    return false;
  }
  return true;
}

bool GetProperty(const Settings& settings, guint number, GValue* value) {
  Settings copy = settings;
  if (const std::string* const text = TextOf(copy, number)) {
    g_value_set_string(value, text->c_str());
  } else if (const bool* const flag = FlagOf(copy, number)) {
    g_value_set_boolean(value, *flag);
  } else if (number == kRange) {
    g_value_set_enum(value, static_cast<int>(settings.range));
  } else if (number == kTimecodeSource) {
    g_value_set_enum(value, static_cast<int>(settings.timecodeSource));
  } else {
    return false;
  }
  return true;
}

qlnmedia::StreamChanges ChangesOf(const Settings& settings) {
  qlnmedia::StreamChanges changes;
  if (!settings.colour.empty()) changes.colour = qlnmedia::ParseColour(settings.colour);
  if (settings.range != Range::kKeep) changes.fullRange = settings.range == Range::kFull;
  if (!settings.masteringDisplay.empty())
    changes.mastering = qlnmedia::ParseMasteringDisplay(settings.masteringDisplay);
  if (!settings.lightLevel.empty()) changes.lightLevel = qlnmedia::ParseLightLevel(settings.lightLevel);
  changes.delimiters = settings.delimiters;
  changes.recoveryPoints = settings.recoveryPoints;
  changes.replaceCaptions = settings.replaceCaptions;
  if (settings.timecodeSource == TimecodeSource::kStart) {
    if (settings.timecode.empty())
      throw qlnmedia::Error("timecode", "is empty, and timecodes shall count from it");
    changes.timecode = settings.timecode;
  } else {
    changes.ownTimecodes = settings.timecodeSource != TimecodeSource::kNone;
  }
  return changes;
}

}  // namespace qlngst
