// A host in C++17: the name of a progressive raster's signal format.
#include <qlnutil/qlnformat.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

int main(int argc, char** argv) {
  if (argc != 4) return 2;
  const auto number = [&](int at) { return static_cast<uint32_t>(std::strtoul(argv[at], nullptr, 10)); };
  const QLNSignalFormat format =
      vidGetSignalFormat(number(3), 1, number(1), static_cast<int32_t>(number(2)), 1);
  char name[32] = "";
  if (vidSignalFormatToStr20(format, name) != 0) return 1;
  std::printf("%.*s\n", static_cast<int>(std::strcspn(name, " ")), name);
}
