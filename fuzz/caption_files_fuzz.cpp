// Caption files as texts: what a reader takes is written, read again and the same, and can be played out.

#include <string>
#include <string_view>

#include "captions/mcc_file.h"
#include "captions/scc_file.h"
#include "fuzz_input.h"

namespace {

using namespace qlnmedia::captions;

void Expect(bool holds) {
  if (!holds) __builtin_trap();
}

void TakeScc(std::string_view text) {
  std::string reason;
  const std::optional<SccFile> file = ReadScc(text, &reason);
  if (!file) return Expect(!reason.empty());
  FirstFrame(*file);
  const std::optional<SccFile> again = ReadScc(WriteScc(*file), &reason);
  Expect(again && *again == *file);
}

void TakeMcc(std::string_view text) {
  std::string reason;
  const std::optional<MccFile> file = ReadMcc(text, &reason);
  if (!file) return Expect(!reason.empty());
  const std::optional<MccFile> again = ReadMcc(WriteMcc(*file), &reason);
  Expect(again && again->lines == file->lines && again->nominal == file->nominal &&
         again->dropFrame == file->dropFrame);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  qln::fuzz::Block block(data, size, size);
  const std::string_view text(reinterpret_cast<const char*>(block.data()), size);
  TakeScc(text);
  TakeMcc(text);
  const std::optional<Bytes> anc = ExpandAnc(text);
  if (anc) {
    const std::optional<Bytes> again = ExpandAnc(ShortenAnc(*anc));
    Expect(again && *again == *anc);
  }
  return 0;
}
