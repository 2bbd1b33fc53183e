// The one walk over a command that both text forms are written by: what is written, in which order, under
// which condition. How it is written is the emitter's.
//
// An emitter has:
//   Link(name, pointer)                        a link that is not null
//   Number(name, value)                        a field by itself
//   BeginWord(name, value, text)               a field with a text; then flags, then End
//   BeginTimecode(name, value, type, text)     a point in time; `type` is empty for a type without a word
//   BeginValue(name, value)                    a field without a text
//   Flag(name)                                 a flag of what was begun
//   End(), EndValue()                          close what was begun; EndValue closes BeginValue
//   Text(name, text)                           a text of the data area
//   AddressNumber(name, shortName, value)      a field repeated behind the addresses
//   Binary(isBase64, length, text)             the data area as a whole, encoded
//   WarnLongText(), WarnFileName()             a text without terminator was passed over
//   kShuttleBesideSpeed                        whether the shuttle flag stands beside a valid speed
// Texts and names stay valid until End.
#ifndef QLNUTIL_MEDIACMD_COMMAND_WALK_H
#define QLNUTIL_MEDIACMD_COMMAND_WALK_H

#include <cstdint>
#include <string_view>

#include "qlnutil/mediacmd.h"
#include "qlnutil/mediacmd/command_words.h"
#include "qlnutil/mediacmd/data_text.h"
#include "qlnutil/mediacmd/record_view.h"
#include "qlnutil/mediacmd/timecode_words.h"

namespace qln {

template <class Emitter>
class CommandWalk {
 public:
  // `record` may lose the "$" that parts its file name from a unique identifier; nothing else in it changes.
  CommandWalk(MediaCmd& record, uint8_t tcType, Emitter& emitter)
      : command_(record),
        view_(record),
        tcType_(tcType == kTcUnset ? kTcFrames : tcType),
        emitter_(emitter) {}

  // Returns false where memory for an encoded text was missing; what was emitted until then stands.
  bool Run() {
    WriteIdentity();
    WriteSpeed();
    WriteChannels();
    WriteCmdAlt();
    WritePoints();
    return !Has(CF_USE_CLIP_ID) || WriteData();
  }

 private:
  bool Has(uint32_t anyOf) const { return (command_.Flags & anyOf) != 0; }

  template <size_t N>
  void WriteFlags(const FlagName (&flags)[N]) {
    for (const FlagName& flag : flags) {
      if (Has(flag.flag)) emitter_.Flag(flag.name);
    }
  }

  void WriteIdentity() {
    if (command_.prev != nullptr) emitter_.Link("prev", command_.prev);
    if (command_.next != nullptr) emitter_.Link("next", command_.next);
    if (command_.list != nullptr) emitter_.Link("list", command_.list);
    emitter_.Number("CmdID", static_cast<int32_t>(command_.CmdID));
    emitter_.Number("StructSize", static_cast<int32_t>(command_.StructSize));
    emitter_.Number("Channel", command_.Channel);
    emitter_.BeginWord("Cmd", static_cast<int32_t>(command_.Cmd), CommandWord(command_.Cmd));
    WriteFlags(kCommandFlags);
    emitter_.End();
  }

  // A running command without a speed of its own is announced at nominal speed, while the text tells the
  // field as it stands: readers on the other side act on the number.
  void WriteSpeed() {
    const bool isValid = Has(CF_USE_SPEED);
    if (!isValid && !IsRunningCommand(command_.Cmd) && !Has(CF_IS_SHUTTLE)) return;
    const NumberText percent = NumberText::Decimal(SpeedPercent(command_.Speed));
    emitter_.BeginWord("Speed", isValid ? command_.Speed : MEDIACMD_PLAY_SPEED, percent.view());
    if (Has(CF_IS_SHUTTLE) && (!isValid || Emitter::kShuttleBesideSpeed)) emitter_.Flag("IsShuttle");
    emitter_.End();
  }

  void WriteChannels() {
    if (!Has(CF_USE_PRESETS)) return;
    if (Has(CF_USE_FRAME_COUNT)) {
      WriteChannelTimecode("ctltimecode", command_.VideoChannels);
      WriteChannelTimecode("ltctimecode", command_.AudioChannels);
      WriteChannelTimecode("vitctimecode", command_.InfoChannels);
    }
    emitter_.Number("VideoChannels", command_.VideoChannels);
    emitter_.Number("AudioChannels", command_.AudioChannels);
    emitter_.Number("InfoChannels", command_.InfoChannels);
  }

  // Always as a timecode, also where points are counted in frames.
  void WriteChannelTimecode(std::string_view name, int32_t value) {
    const NumberText text = NumberText::Timecode(value, tcType_ | kTextTimecode);
    emitter_.BeginTimecode(name, value, TcTypeWord(tcType_), text.view());
    emitter_.End();
  }

  void WriteCmdAlt() {
    if (!Has(CF_USE_CMD_ALT | CF_TIME_MS | CF_TIME_TARGET | CF_TIME_HOUSE_CLOCK)) return;
    emitter_.BeginValue("CmdAlt", command_.CmdAlt);
    WriteFlags(kCmdAltTimes);
    emitter_.EndValue();
  }

  void WritePoints() {
    const uint32_t byType = tcType_ | kTextTimecode;
    WritePoint("Position", command_.Position, byType, CF_USE_POSITION_OFFSET);
    if (Has(CF_USE_START | CF_USE_START_OFFSET)) {
      // -1, no alternate value, lies above the services too.
      const bool isService = static_cast<uint32_t>(command_.CmdAlt) > uint32_t{kStateQlnService};
      WritePoint("Start", command_.Start, isService ? kServiceTimecode : byType, CF_USE_START_OFFSET);
    }
    if (Has(CF_USE_END | CF_USE_END_OFFSET)) {
      const bool isQueue = IsValueCommand(command_.Cmd) &&
                           (command_.CmdAlt == kStateInsertQueue || command_.CmdAlt == kStateXlatQueue);
      WritePoint("End", command_.End, isQueue ? kServiceTimecode : byType, CF_USE_END_OFFSET);
    }
  }

  void WritePoint(std::string_view name, int32_t value, uint32_t typeWord, uint32_t offsetFlag) {
    const NumberText text =
        tcType_ == kTcFrames ? NumberText::Decimal(value) : NumberText::Timecode(value, typeWord);
    emitter_.BeginTimecode(name, value, TcTypeWord(tcType_), text.view());
    if (Has(offsetFlag)) emitter_.Flag("IsOffset");
    WriteFlags(kPointFlags);
    emitter_.End();
  }

  bool WriteData() {
    if (IsValueCommand(command_.Cmd)) {
      switch (command_.CmdAlt) {
        case kStateFrameData:
        case kStatePreviewFrame:
          return Has(CF_USING_CURRENT) || WriteBinary();
        case kStateQlnType:
          emitter_.Text("chanName", view_.TextAt(kClipIdOffset));
          return true;
        case kStateChannelName:
          WriteAliases();
          break;
        case kStateIpVideoSettings:
          WriteAddresses();
          break;
        case kStateIpVideoClock:
          emitter_.Text("clockipaddress", view_.TextAt(kClipIdOffset));
          break;
        default:
          break;
      }
    }
    switch (command_.CmdAlt) {
      case kStateMetabaseFileName:
        WriteMetabaseFileName();
        break;
      case kStateMetabaseGetTag:
        WriteMetabaseTag();
        break;
      default:
        WriteClip();
        break;
    }
    return true;
  }

  bool WriteBinary() {
    const bool isBase64 = Has(CF_NO_TC_SPACES);
    const EncodedData text(view_.BytesFrom(kClipIdOffset), isBase64);
    if (!text.isValid()) return false;
    emitter_.Binary(isBase64, SignedStructSize(command_) - kClipIdOffset, text.view());
    return true;
  }

  // Packed texts. The first alias repeats the channel's name, and the text that stands in its place is kept
  // for the second one: the form is as old as the hosts that read it.
  void WriteAliases() {
    static constexpr std::string_view kNames[] = {"channel2alias", "channel3alias", "channel4alias",
                                                  "channel5alias", "channel6alias", "channel7alias"};
    const std::string_view channel = view_.TextAt(kFileNameOffset);
    emitter_.Text("channelalias", channel);
    int64_t offset = kFileNameOffset + static_cast<int64_t>(channel.size()) + 1;
    if (view_.At(offset) != '\0') {
      emitter_.Text("channel1alias", channel);
    } else {
      ++offset;
    }
    for (const std::string_view name : kNames) {
      const std::string_view alias = view_.TextAt(offset);
      if (!alias.empty()) emitter_.Text(name, alias);
      offset += static_cast<int64_t>(alias.size()) + 1;
    }
  }

  void WriteAddresses() {
    int64_t offset = kClipIdOffset;
    for (const std::string_view name : {"destinationipaddress", "sourceipaddress", "interfaceipaddress"}) {
      const std::string_view address = view_.TextAt(offset);
      emitter_.Text(name, address);
      offset += static_cast<int64_t>(address.size()) + 1;
    }
    emitter_.AddressNumber("Start", "start", command_.Start);
    emitter_.AddressNumber("End", "end", command_.End);
    emitter_.AddressNumber("AudioChannels", "audiochannels", command_.AudioChannels);
  }

  // A "$" parts the file name from a unique identifier. It is overwritten in the caller's record, which is
  // why a second pass finds no identifier.
  void WriteMetabaseFileName() {
    if (view_.At(kLongTextMarkOffset) != '\0') return;
    emitter_.Text("ClipID", view_.TextAt(kClipIdOffset));
    const size_t mark = view_.TextAt(kFileNameOffset).find('$');
    if (mark != std::string_view::npos) {
      const int64_t offset = kFileNameOffset + static_cast<int64_t>(mark);
      emitter_.Text("UniqueID", view_.TextAt(offset + 1));
      reinterpret_cast<char*>(&command_)[offset] = '\0';
    }
    emitter_.Text("FileName", view_.TextAt(kFileNameOffset));
  }

  void WriteMetabaseTag() {
    const std::string_view tag = view_.TextAt(kClipIdOffset);
    emitter_.Text("MetaTag", tag);
    if (command_.Speed == 1) {
      emitter_.Text("MetaData", view_.TextAt(kClipIdOffset + command_.End + 1));
    } else {
      emitter_.Text("MetaData", NumberText::Decimal(command_.Start).view());
    }
    if (tag == "REPLAY_COUNT") {
      emitter_.Text("PageRequest", NumberText::Decimal(command_.InfoChannels).view());
    }
  }

  void WriteClip() {
    const std::string_view clip = view_.TextAt(kClipIdOffset);
    if (view_.At(kLongTextMarkOffset) != '\0') {
      if (clip.empty()) return;
      if (!view_.IsTerminated(kClipIdOffset, clip)) {
        emitter_.WarnLongText();
      } else if (static_cast<int64_t>(clip.size()) < SignedStructSize(command_) - kClipIdOffset - 1) {
        emitter_.Text("FileName", clip);
      }
      return;
    }
    emitter_.Text("ClipID", clip);
    const std::string_view file = view_.TextAt(kFileNameOffset);
    if (file.empty()) {
      if (command_.CmdAlt == kStateMetadata) emitter_.Text("FileName", clip);
    } else if (!view_.IsTerminated(kFileNameOffset, file)) {
      emitter_.WarnFileName();
    } else if (static_cast<int64_t>(file.size()) < SignedStructSize(command_) - kFileNameOffset - 1) {
      emitter_.Text("FileName", file);
    }
  }

  MediaCmd& command_;
  RecordView view_;
  uint8_t tcType_;
  Emitter& emitter_;
};

}  // namespace qln

#endif
