// The head of a configuration record held against its sequence parameter sets.
#ifndef MEDIA_CHECK_CONFIG_HEAD_H
#define MEDIA_CHECK_CONFIG_HEAD_H

#include <string>
#include <vector>

#include "units/config_record.h"

namespace qlnmedia {

// What the head of an avcC or hvcC says otherwise than the SPS in it.
std::vector<std::string> ConfigHeadFindings(const ConfigRecord& config);

}  // namespace qlnmedia

#endif
