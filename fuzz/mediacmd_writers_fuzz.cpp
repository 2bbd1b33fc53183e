// Any record through both writers, the debug printer, repair and merge. The bytes are the record from
// `StructSize` on; its block ends where they do.

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "kxutil/kxutil.h"
#include "kxutil/tinyxml_header.h"
#include "qlnutil/mediacmd.h"
#include "qlnutil/mediacmd/command_json.h"

namespace {

void Drop(uint32_t, const char*, void*) {}

// A block of exactly the size that the record tells, or of the fixed fields where it tells less.
std::unique_ptr<char[]> MakeRecord(const uint8_t* data, size_t size) {
  constexpr size_t kHead = offsetof(MediaCmd, StructSize);
  constexpr size_t kFixed = offsetof(MediaCmd, ClipID);
  const size_t blockSize = std::max(kFixed, kHead + size);
  std::unique_ptr<char[]> block(new char[blockSize]());
  if (size != 0) std::memcpy(block.get() + kHead, data, size);
  uint32_t structSize = 0;
  std::memcpy(&structSize, block.get() + kHead, sizeof structSize);
  // Sizes from 2^31 on count as negative and stay.
  if (structSize < 0x80000000u) structSize = std::min(structSize, static_cast<uint32_t>(blockSize));
  std::memcpy(block.get() + kHead, &structSize, sizeof structSize);
  return block;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  kxSetDiagnosticSink(Drop, nullptr);
  const uint32_t type = size != 0 ? data[size - 1] : 0;

  const std::unique_ptr<char[]> first = MakeRecord(data, size);
  MediaCmd* const command = reinterpret_cast<MediaCmd*>(first.get());
  __dbgout_mediacmd(command);
  char* text = nullptr;
  MediaCmdToXMLString(&text, command, type);
  if (text == nullptr) std::abort();
  const std::string compact(text);
  MediaCmdFreeXMLString(&text);

  // Both ways of writing XML give one text.
  const std::unique_ptr<char[]> second = MakeRecord(data, size);
  TiXmlDocument document;
  MediaCmdToXML(&document, reinterpret_cast<MediaCmd*>(second.get()), type);
  std::string printed;
  printed << document;
  if (printed != compact) std::abort();

  const std::unique_ptr<char[]> third = MakeRecord(data, size);
  qln::MediaCmdToJSON(&text, reinterpret_cast<MediaCmd*>(third.get()), type);
  if (text == nullptr) std::abort();
  MediaCmdFreeXMLString(&text);

  const std::unique_ptr<MediaCmd> whole(new MediaCmd);
  initMediaCmd(whole.get(), ctStop);
  std::memcpy(&whole->Cmd, first.get() + offsetof(MediaCmd, Cmd),
              offsetof(MediaCmd, ClipID) - offsetof(MediaCmd, Cmd));
  if (size != 0)
    std::memcpy(whole->ClipID, data, std::min(size, sizeof(MediaCmd) - offsetof(MediaCmd, ClipID)));
  const std::unique_ptr<MediaCmd> merged(new MediaCmd(*whole));
  if (size >= 8) std::memcpy(&merged->StructSize, data + 4, sizeof(uint32_t));
  if (merged->StructSize > MEDIACMD_SIZE) merged->StructSize = MEDIACMD_SIZE;
  copyMediaCmd(merged.get(), whole.get(), type);
  fixMediaCmd(merged.get(), type);
  return 0;
}
