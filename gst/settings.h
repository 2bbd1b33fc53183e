// What the properties of qlnedit say.
#ifndef GST_SETTINGS_H
#define GST_SETTINGS_H

#include <gst/gst.h>

#include <string>

#include "qlnmedia/stream_editor.h"

namespace qlngst {

enum class Range { kKeep, kLimited, kFull };
enum class TimecodeSource { kNone, kMeta, kRunningTime, kStart };

struct Settings {
  std::string colour;
  Range range = Range::kKeep;
  std::string masteringDisplay;
  std::string lightLevel;
  bool delimiters = false;
  bool recoveryPoints = false;
  TimecodeSource timecodeSource = TimecodeSource::kNone;
  std::string timecode = "00:00:00:00";
  bool captions = false;
  bool replaceCaptions = false;
  bool removeCaptionMeta = false;

  friend bool operator==(const Settings&, const Settings&) = default;
};

// Puts the properties of the settings into a class; both calls then take their numbers.
void InstallProperties(GObjectClass* gobjectClass);
// False for a number that is none of them.
bool SetProperty(Settings& settings, guint number, const GValue* value);
bool GetProperty(const Settings& settings, guint number, GValue* value);

// What an editor is asked for; a timecode of the first picture stands as the settings have it. Throws
// qlnmedia::Error for a text that says nothing.
qlnmedia::StreamChanges ChangesOf(const Settings& settings);

}  // namespace qlngst

#endif
