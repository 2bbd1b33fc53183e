// Any text as a command's JSON, into a record of the default size.

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "kxutil/kxutil.h"
#include "qlnutil/mediacmd.h"
#include "qlnutil/mediacmd/command_json.h"

namespace {
void Drop(uint32_t, const char*, void*) {}
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  kxSetDiagnosticSink(Drop, nullptr);
  const std::unique_ptr<char[]> text(new char[size + 1]);
  if (size != 0) std::memcpy(text.get(), data, size);
  text[size] = '\0';

  const std::unique_ptr<MediaCmd> command(new MediaCmd);
  initMediaCmd(command.get(), ctStop);
  const std::unique_ptr<MediaCmd> before(new MediaCmd(*command));
  const int32_t result = qln::MediaCmdFromJSON(command.get(), nullptr, text.get());
  if (result < -2 || result > 1) std::abort();
  if (result != 0 && std::memcmp(command.get(), before.get(), sizeof *before) != 0) std::abort();
  return 0;
}
