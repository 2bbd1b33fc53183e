// A host that shows the captions of a file: reader FILE
#include <qlnmedia/captions.h>
#include <qlnmedia/error.h>

#include <cstdio>

int main(int argc, char** argv) {
  if (argc != 2) return 2;
  try {
    for (const qlnmedia::CaptionService& service : qlnmedia::ReadFileCaptions(argv[1]).services) {
      for (const qlnmedia::CaptionLine& line : service.lines)
        std::printf("%s: %s\n", service.name.c_str(), line.text.c_str());
    }
  } catch (const qlnmedia::Error& error) {
    std::puts(error.what());
    return 1;
  }
}
