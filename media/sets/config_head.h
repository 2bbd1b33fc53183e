// The head of a configuration record, field by field, beside what the sequence parameter sets say of the same
// (ISO/IEC 14496-15 clauses 5.3.3.1 and 8.3.3.1).
#ifndef MEDIA_SETS_CONFIG_HEAD_H
#define MEDIA_SETS_CONFIG_HEAD_H

#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

#include "units/config_record.h"

namespace qlnmedia {

struct ConfigHeadField {
  std::string_view name;  // as published
  uint64_t box = 0;
  std::optional<uint64_t> sets;  // what the sets ask for; nothing where they say nothing of it
  bool agrees = true;            // the box says what the sets allow
  int hexDigits = 0;             // of a field of flags; 0 for a number
};

// Every field of the head in its order, and behind an avcC's lists chroma format and bit depths where they
// are there. Nothing for private data without a head. Where several sets differ, a record has the highest
// level and tier, and only those flags that all of them have. Sets of higher HEVC layers are left aside.
std::vector<ConfigHeadField> ReadConfigHead(const ConfigRecord& config, const std::vector<Bytes>& sets);

}  // namespace qlnmedia

#endif
