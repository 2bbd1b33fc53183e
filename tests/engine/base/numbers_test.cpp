// Numbers and rates as people write them.

#include "base/numbers.h"

#include <gtest/gtest.h>

#include <string>

namespace qlnmedia {
namespace {

TEST(Numbers, DecimalAndHexadecimal) {
  EXPECT_EQ(ParseNumber("0x2380B21D"), 0x2380B21Du);
  EXPECT_EQ(ParseNumber("0X2380b21d"), 0x2380B21Du);
  EXPECT_EQ(ParseNumber("4294967295"), 4294967295u);
  for (const char* text : {"", "0x", "4294967296", "-1", "+1", " 1", "1 ", "0x1g", "1.5"})
    EXPECT_FALSE(ParseNumber(text).has_value()) << text;
}

TEST(Numbers, Rates) {
  const auto rate = [](const char* text) {
    const auto parsed = ParseRate(text);
    return parsed ? std::to_string(parsed->rate) + "/" + std::to_string(parsed->scale) : "none";
  };
  EXPECT_EQ(rate("25"), "25/1");
  EXPECT_EQ(rate("29.97"), "2997/100");
  EXPECT_EQ(rate("23.976"), "23976/1000");
  EXPECT_EQ(rate("0.5"), "5/10");
  EXPECT_EQ(rate("30000/1001"), "30000/1001");
  EXPECT_EQ(rate("1.000000001"), "1000000001/1000000000");
  for (const char* text : {"", "0", "0/1", "1/0", "/", "1/", "/1", ".", "1.", "0.0", "1.0000000001", "0x19",
                           "25p", "5.000000000", "1.2/3", "1/2.3"})
    EXPECT_EQ(rate(text), "none") << text;
}

}  // namespace
}  // namespace qlnmedia
