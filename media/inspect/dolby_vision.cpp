// Reports Dolby Vision configurations and metadata units.

#include "inspect/dolby_vision.h"

#include <fmt/format.h>

#include "qlnutil/qlnhevc.h"

namespace qlnmedia {

void AddDolbyVisionConfiguration(Section& stream, const DolbyVisionConfiguration& record) {
  Section& section = stream.AddSection("dolby_vision", "Dolby Vision configuration");
  const auto present = [&section](const char* key, const char* label, uint8_t flag) {
    section.Add(key, label, flag, flag != 0 ? "present" : "absent");
  };
  section.Add("dv_version_major", "Major version", record.dv_version_major);
  section.Add("dv_version_minor", "Minor version", record.dv_version_minor);
  section.Add("dv_profile", "Profile", record.dv_profile);
  section.Add("dv_level", "Level", record.dv_level);
  present("rpu_present_flag", "RPU", record.rpu_present_flag);
  present("el_present_flag", "Enhancement layer", record.el_present_flag);
  present("bl_present_flag", "Base layer", record.bl_present_flag);
  section.Add("dv_bl_signal_compatibility_id", "Compatibility", record.dv_bl_signal_compatibility_id);
}

void AddDolbyVisionMetadata(Section& frame, const UnitRun& run) {
  Bytes data = ToLengthForm(run.units);
  uint8_t* sei = nullptr;
  uint8_t* rpu = nullptr;
  uint32_t seiSize = 0;
  uint32_t rpuSize = 0;
  if (qlnUtilFindDolbyVisionMetadata(data.data(), static_cast<uint32_t>(data.size()), 0, &sei, &seiSize, &rpu,
                                     &rpuSize) == 1 &&
      rpuSize != 0)
    frame.Add("dolby_vision_rpu_size", "Dolby Vision", rpuSize, fmt::format("RPU of {} bytes", rpuSize));
}

}  // namespace qlnmedia
