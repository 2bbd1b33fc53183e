// Changes what a file says about its colour, and checks what came out: patch_file IN OUT
//
// Whatever the container, the output is of the same kind; coded slices and all that was not asked for are the
// input's bytes.
#include <qlnmedia/check.h>
#include <qlnmedia/error.h>
#include <qlnmedia/patch.h>

#include <cstdio>
#include <string>

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: patch_file IN OUT\n");
    return 2;
  }
  try {
    qlnmedia::PatchOptions options;
    options.in = argv[1];
    options.out = argv[2];
    options.colour = qlnmedia::ParseColour("bt709");
    options.timecode = "10:00:00:00";
    options.verify = true;  // reads the output back and compares
    for (const std::string& line : qlnmedia::PatchFile(options).lines) std::printf("%s\n", line.c_str());

    for (const qlnmedia::Finding& finding : qlnmedia::CheckFile(options.out))
      std::printf("%s: %s\n", qlnmedia::FindingWord(finding.kind), finding.text.c_str());
    return 0;
  } catch (const qlnmedia::Error& error) {
    std::fprintf(stderr, "patch_file: %s\n", error.what());
    return 1;
  }
}
