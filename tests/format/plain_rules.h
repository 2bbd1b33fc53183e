// The rules from rate and raster to a signal format, written out as plain tests: slow, and independent of the
// library's rule tables.
#ifndef TESTS_FORMAT_PLAIN_RULES_H
#define TESTS_FORMAT_PLAIN_RULES_H

#include <cstdint>

namespace qln::test {

struct Raster {
  uint32_t rate;
  uint32_t scale;
  uint32_t width;
  int32_t height;
  uint32_t progressive;
};

uint32_t FormatByPlainRules(const Raster& raster);

}  // namespace qln::test

#endif
