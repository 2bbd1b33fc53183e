// Any text as a command's XML, into records of the default size and longer ones; and the short way for texts
// of the writer's shape against the parser: the same result, record and messages.

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "kxutil/kxutil.h"
#include "kxutil/tinyxml_header.h"
#include "kxutil/xml_prescan.h"
#include "qlnutil/mediacmd.h"

namespace {
void Drop(uint32_t, const char*, void*) {}
void Keep(uint32_t, const char* text, void* messages) { *static_cast<std::string*>(messages) += text; }

// As the text reader does it where it has a document.
uint32_t ReadByParser(MediaCmd& command, const uint32_t& type, const char* text) {
  initMediaCmd(&command, ctStop);
  std::string parsed(text, qln::SafeXmlLength(text, std::strlen(text)));
  parsed.append(4, '\0');  // the parser steps over the end in the middle of a character
  TiXmlDocument document;
  document.Parse(parsed.c_str());
  return MediaCmdFromXML(&command, &type, document);
}
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  kxSetDiagnosticSink(Drop, nullptr);
  const std::unique_ptr<char[]> text(new char[size + 1]);
  if (size != 0) std::memcpy(text.get(), data, size);
  text[size] = '\0';

  const std::unique_ptr<MediaCmd> command(new MediaCmd);
  const uint32_t type = size != 0 ? data[0] : 0;
  std::string messages, others;
  // This thread's alone: targets run beside each other in one of the tests.
  kxSetThreadDiagnosticSink(Keep, &messages, nullptr, nullptr);
  std::memset(command.get(), 0x5A, sizeof *command);
  const uint32_t result = MediaCmdFromXMLString(command.get(), &type, text.get());
  kxSetThreadDiagnosticSink(Keep, &others, nullptr, nullptr);
  const std::unique_ptr<MediaCmd> other(new MediaCmd);
  std::memset(other.get(), 0x5A, sizeof *other);
  if (ReadByParser(*other, type, text.get()) != result || messages != others ||
      std::memcmp(command.get(), other.get(), sizeof *command) != 0)
    std::abort();
  kxSetThreadDiagnosticSink(nullptr, nullptr, nullptr, nullptr);
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
