// Any text as a command's XML, into records of the default size and longer ones.

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "kxutil/kxutil.h"
#include "kxutil/tinyxml_header.h"
#include "qlnutil/mediacmd.h"

namespace {
void Drop(uint32_t, const char*, void*) {}
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  kxSetDiagnosticSink(Drop, nullptr);
  const std::unique_ptr<char[]> text(new char[size + 1]);
  if (size != 0) std::memcpy(text.get(), data, size);
  text[size] = '\0';

  const std::unique_ptr<MediaCmd> command(new MediaCmd);
  const uint32_t type = size != 0 ? data[0] : 0;
  const uint32_t result = MediaCmdFromXMLString(command.get(), &type, text.get());
  if (result != 0 && result < 0xFFFFFFFDu) std::abort();
  if (result != 0) return 0;

  // The owner sets the size anew; then what was read can be written and read again.
  command->StructSize = MEDIACMD_SIZE;
  char* again = nullptr;
  MediaCmdToXMLString(&again, command.get(), type);
  if (again == nullptr) std::abort();
  TiXmlDocument document;
  document.Parse(again);
  MediaCmdFreeXMLString(&again);

  constexpr size_t kLong = 6000;
  const std::unique_ptr<char[]> block(new char[kLong]);
  std::memset(block.get(), 'x', kLong);
  MediaCmd* const longer = reinterpret_cast<MediaCmd*>(block.get());
  initMediaCmd(longer, ctStop);
  longer->StructSize = kLong;
  if (MediaCmdFromXML(longer, nullptr, document) != 0) std::abort();
  return 0;
}
