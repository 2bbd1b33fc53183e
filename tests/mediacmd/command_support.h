// What the tests of the transport command share: records, and their bytes.
#ifndef TESTS_MEDIACMD_COMMAND_SUPPORT_H
#define TESTS_MEDIACMD_COMMAND_SUPPORT_H

#include <cstring>
#include <memory>
#include <string>
#include <string_view>

#include "qlnutil/mediacmd.h"
#include "support/test_support.h"

namespace qln::test {

inline constexpr uint32_t kMiss = 0xFFFFFFFFu;

inline MediaCmd Command(uint32_t cmd, uint32_t flags = 0) {
  MediaCmd command;
  initMediaCmd(&command, cmd);
  command.Flags = flags;
  return command;
}

// A command with all flags of a value command that carries a data area.
inline MediaCmd ValueCommand(int32_t state, uint32_t cmd = ctGetValue, uint32_t flags = CF_USE_CLIP_ID) {
  MediaCmd command = Command(cmd, flags);
  command.CmdAlt = state;
  return command;
}

// Puts bytes at an offset of the record.
inline void Put(MediaCmd& command, size_t offset, std::string_view bytes) {
  std::memcpy(reinterpret_cast<char*>(&command) + offset, bytes.data(), bytes.size());
}

inline std::string BytesAt(const MediaCmd& command, size_t offset, size_t count) {
  return std::string(reinterpret_cast<const char*>(&command) + offset, count);
}

inline bool SameRecord(const MediaCmd& a, const MediaCmd& b) { return std::memcmp(&a, &b, sizeof a) == 0; }

// A record in a heap block of exactly the size that its StructSize tells, so that a read behind it is seen.
class ExactRecord {
 public:
  ExactRecord(const MediaCmd& command, size_t size) : bytes_(new char[size]) {
    std::memset(bytes_.get(), 'x', size);
    std::memcpy(bytes_.get(), &command, std::min(size, sizeof command));
    const uint32_t structSize = static_cast<uint32_t>(size);
    std::memcpy(bytes_.get() + offsetof(MediaCmd, StructSize), &structSize, sizeof structSize);
  }
  MediaCmd* get() { return reinterpret_cast<MediaCmd*>(bytes_.get()); }
  char* bytes() { return bytes_.get(); }

 private:
  std::unique_ptr<char[]> bytes_;
};

}  // namespace qln::test

#endif
