// The debug printers: one line about a command, and a timecode's text.

#include <cinttypes>
#include <cstdarg>
#include <cstdio>

#include "kxutil/kxutil.h"
#include "qlnutil/mediacmd.h"
#include "qlnutil/mediacmd/command_words.h"
#include "qlnutil/mediacmd/record_view.h"
#include "timecode/kxtimecode.h"

namespace {

// What debug output asks of the timecode service, beside the type in the low byte.
constexpr uint32_t kDebugTimecode = 0x10100;
constexpr uint32_t kDebugNonDrop = 0x10102;

// A line of at most 1039 characters; what does not fit is cut.
class DebugLine {
 public:
  // NOLINTNEXTLINE(cert-dcl50-cpp): the compiler holds each call to its format
  __attribute__((format(printf, 2, 3))) void Add(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const size_t room = sizeof text_ - length_;
    const int count = std::vsnprintf(text_ + length_, room, format, arguments);
    va_end(arguments);
    length_ += std::min(static_cast<size_t>(std::max(count, 0)), room - 1);
  }
  void Add(std::string_view text) {
    const size_t count = std::min(text.size(), sizeof text_ - 1 - length_);
    std::memcpy(text_ + length_, text.data(), count);
    length_ += count;
    text_[length_] = '\0';
  }
  const char* text() const { return text_; }

 private:
  char text_[1040] = {};
  size_t length_ = 0;
};

void AddCommand(DebugLine& line, const MediaCmd& command) {
  if (command.Cmd > ctSwitch) return;
  if (command.Cmd == ctGetValue) {
    char word[GS_WORD_SIZE];
    if (gsToString(static_cast<uint32_t>(command.CmdAlt), word) == 0) {
      line.Add("ctGetValue(%s)", word);
    } else {
      line.Add("ctGetValue(%" PRId32 ", 0x%" PRIX32 ") ", command.CmdAlt,
               static_cast<uint32_t>(command.CmdAlt));
    }
    return;
  }
  line.Add("ct");
  line.Add(qln::CommandWord(command.Cmd));
  line.Add(" ");
}

const char* CmdAltLabel(uint32_t flags) {
  constexpr uint32_t kTarget = CF_TIME_MS | CF_TIME_TARGET;
  constexpr uint32_t kHouse = CF_TIME_MS | CF_TIME_HOUSE_CLOCK;
  if ((flags & kTarget) == kTarget) return "CmdTarget: ";
  if ((flags & kHouse) == kHouse) return "CmdHouse: ";
  return (flags & CF_TIME_MS) != 0 ? "CmdTime: " : "CmdAlt: ";
}

void AddFields(DebugLine& line, const MediaCmd& command) {
  const uint32_t flags = command.Flags;
  if (flags & CF_DEFERRED) line.Add("Deferred ");
  if (flags & CF_USE_SPEED) line.Add("UseSpeed (%" PRId32 ") ", qln::SpeedPercent(command.Speed));
  if (flags & CF_USE_POSITION) line.Add("UsePosition (%" PRId32 ") ", command.Position);
  if (flags & CF_USE_START) line.Add("Use Start (%" PRId32 ") ", command.Start);
  if (flags & CF_USE_START_OFFSET) line.Add("UseStartOffset (%" PRId32 ") ", command.Start);
  if (flags & CF_USE_END) line.Add("UseEnd (%" PRId32 ") ", command.End);
  if (flags & CF_USE_END_OFFSET) line.Add("UseEndOffset (%" PRId32 ") ", command.End);
  if (flags & CF_USE_CMD_ALT) line.Add("%s(%" PRId32 ") ", CmdAltLabel(flags), command.CmdAlt);
  // Governed by the position flag on purpose: log readers expect the presets beside each position.
  if (flags & CF_USE_POSITION) {
    line.Add("UsePresets: V(%" PRId32 ")A(%" PRId32 ")I(%" PRId32 ") ", command.VideoChannels,
             command.AudioChannels, command.InfoChannels);
  }
}

// Returns false, adding nothing, where a text runs to the end of the record.
bool AddTexts(DebugLine& line, const MediaCmd& command) {
  const qln::RecordView record(command);
  const std::string_view clip = record.TextAt(qln::kClipIdOffset);
  const std::string_view file = record.TextAt(qln::kFileNameOffset);
  if (!record.IsTerminated(qln::kClipIdOffset, clip) || !record.IsTerminated(qln::kFileNameOffset, file)) {
    return false;
  }
  line.Add("UseClipId: (");
  line.Add(clip);
  line.Add(")(");
  line.Add(file);
  line.Add(") ");
  return true;
}

}  // namespace

void __dbgout_mediacmd(const MediaCmd* command) {
  if (command == nullptr || command->Cmd == ctGetState || command->Cmd == ctSetState) return;
  DebugLine line;
  line.Add("qln-Chan%1" PRId32 " ", command->Channel);
  AddCommand(line, *command);
  AddFields(line, *command);
  if ((command->Flags & CF_USE_CLIP_ID) != 0 && !AddTexts(line, *command)) {
    ErrFmtOut(KX_SEVERITY_WARNING, 0, 0, "WARNING(vuMCmd): %s\n", "Exception: outputing mediacmd to string");
  }
  OutputDebugStringA(line.text());
}

void __dbgout_tc(uint32_t timecode, uint8_t tcType) {
  char text[260] = {};
  TimeCodeToString(timecode, tcType == 0 ? kDebugNonDrop : tcType | kDebugTimecode, text);
  OutputDebugStringA(text);
}
