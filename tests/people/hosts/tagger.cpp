// A host that puts colour right in a file: tagger IN OUT
#include <qlnmedia/patch.h>

#include <cstdio>

int main(int argc, char** argv) {
  if (argc != 3) return 2;
  try {
    qlnmedia::PatchOptions options;
    options.in = argv[1];
    options.out = argv[2];
    options.colour = qlnmedia::ParseColour("bt2020-hlg");
    options.verify = true;
    for (const std::string& line : qlnmedia::PatchFile(options).lines) std::puts(line.c_str());
  } catch (const qlnmedia::Error& error) {
    std::puts(error.what());
    return 1;
  }
}
