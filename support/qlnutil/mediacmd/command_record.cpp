// Default values, repair and merge of the command record.

#include <algorithm>
#include <cstring>

#include "qlnutil/mediacmd.h"
#include "qlnutil/mediacmd/command_words.h"
#include "qlnutil/mediacmd/record_view.h"

namespace {

// These follow the source of a merge; all others keep what the destination had.
constexpr uint32_t kFlagsOfSource =
    CF_DEFERRED | CF_OVERRIDE_DEFERRED | CF_TIME_MS | CF_TIME_TARGET | CF_TIME_HOUSE_CLOCK | CF_USE_ALL_IDS |
    CF_NO_CLIP_FILES | CF_NO_TC_SPACES | CF_LOOP | CF_RIPPLE | CF_INVERT | CF_TEST | CF_NO_RETURN;

// Any of these makes `CmdAlt` valid.
constexpr uint32_t kCmdAltFlags = CF_USE_CMD_ALT | CF_TIME_MS | CF_TIME_TARGET | CF_TIME_HOUSE_CLOCK;

// Below the room of `FileName` on purpose: the last bytes of the field stay those of the destination.
constexpr int64_t kFileNameCopyLimit = 4099;

void SetAllChannels(MediaCmd& command) {
  command.VideoChannels = -1;
  command.AudioChannels = -1;
  command.InfoChannels = -1;
}

// The speed that a command has by itself. Returns false where it has none.
bool DefaultSpeed(uint32_t cmd, int32_t& speed) {
  if (qln::IsRunningCommand(cmd)) {
    speed = MEDIACMD_PLAY_SPEED;
  } else if (qln::IsHaltingCommand(cmd)) {
    speed = 0;
  } else {
    return false;
  }
  return true;
}

uint32_t MergeSpeed(MediaCmd& destination, const MediaCmd& source) {
  if (source.Flags & CF_USE_SPEED) {
    destination.Speed = source.Speed;
    return CF_USE_SPEED;
  }
  if (DefaultSpeed(source.Cmd, destination.Speed)) return CF_USE_SPEED;
  destination.Speed = MEDIACMD_NO_SPEED;
  return 0;
}

uint32_t MergePresets(MediaCmd& destination, const MediaCmd& source) {
  if ((source.Flags & CF_USE_PRESETS) == 0) {
    SetAllChannels(destination);
    return 0;
  }
  destination.VideoChannels = source.VideoChannels;
  destination.AudioChannels = source.AudioChannels;
  destination.InfoChannels = source.InfoChannels;
  return CF_USE_PRESETS;
}

uint32_t MergeCmdAlt(MediaCmd& destination, const MediaCmd& source) {
  const uint32_t valid = source.Flags & kCmdAltFlags;
  if (valid != 0 || qln::IsValueCommand(source.Cmd)) destination.CmdAlt = source.CmdAlt;
  return valid;
}

void MergeTexts(MediaCmd& destination, const MediaCmd& source) {
  qln::CopyBounded(destination.ClipID, {source.ClipID, strnlen(source.ClipID, qln::kClipIdCharacters)},
                   qln::kClipIdCharacters);
  const int64_t room =
      std::min({qln::SignedStructSize(source) - qln::kFileNameOffset,
                qln::SignedStructSize(destination) - qln::kFileNameOffset, kFileNameCopyLimit});
  if (room < 1) return;
  qln::CopyBounded(destination.FileName, qln::RecordView(source).TextAt(qln::kFileNameOffset),
                   static_cast<size_t>(room));
}

}  // namespace

void initMediaCmd(MediaCmd* command, uint32_t cmd) {
  if (command == nullptr) return;
  std::memset(command, 0, sizeof *command);
  command->CmdID = MEDIACMD_ID;
  command->StructSize = MEDIACMD_SIZE;
  command->Channel = -1;
  command->Cmd = cmd;
  command->Speed = MEDIACMD_NO_SPEED;
  SetAllChannels(*command);
  command->CmdAlt = -1;
  command->Position = -1;
  command->Start = -1;
  command->End = -1;
}

uint32_t fixMediaCmd(MediaCmd* command, uint32_t mask) {
  if (command == nullptr) return 0;
  const uint32_t tested = mask == 0 ? command->Flags : command->Flags & mask;
  if ((tested & CF_USE_PRESETS) == 0) SetAllChannels(*command);
  if ((tested & CF_USE_SPEED) == 0 && DefaultSpeed(command->Cmd, command->Speed)) {
    command->Flags |= CF_USE_SPEED;
  }
  return command->Flags;
}

void copyMediaCmd(MediaCmd* destination, const MediaCmd* source, uint32_t mask) {
  if (destination == nullptr || source == nullptr) return;
  destination->CmdID = MEDIACMD_ID;
  destination->Channel = source->Channel;
  destination->Cmd = source->Cmd;

  uint32_t flags = (mask & source->Flags) | destination->Flags;
  flags &= source->Flags | ~kFlagsOfSource;
  flags |= MergeSpeed(*destination, *source);
  flags |= MergePresets(*destination, *source);
  flags |= MergeCmdAlt(*destination, *source);

  destination->Position = source->Position;
  flags |= source->Flags & (CF_USE_POSITION | CF_USE_POSITION_OFFSET);

  constexpr uint32_t kPointFlags = CF_USE_START | CF_USE_START_OFFSET | CF_USE_END | CF_USE_END_OFFSET;
  destination->Start = source->Start;
  destination->End = source->End;
  flags = (flags & ~kPointFlags) | (source->Flags & kPointFlags);
  destination->Flags = flags;

  if (source->Flags & CF_USE_CLIP_ID) MergeTexts(*destination, *source);
}
