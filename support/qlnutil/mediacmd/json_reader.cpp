// Reads a command from JSON text: one pass over the tokenizer's flat array, without a notion of nesting.

#define JSMN_HEADER
#include <jsmn.h>

#include <algorithm>
#include <climits>
#include <cstring>

#include "kxutil/kxutil.h"
#include "qlnutil/mediacmd/command_json.h"
#include "qlnutil/mediacmd/command_words.h"
#include "qlnutil/mediacmd/json_shape.h"
#include "qlnutil/mediacmd/record_area.h"
#include "qlnutil/mediacmd/timecode_words.h"

namespace qln {
namespace {

constexpr int32_t kRead = 0;
constexpr int32_t kObjectExpected = 1;
constexpr int32_t kFailed = -1;
constexpr int32_t kNoRoot = -2;

constexpr int kMaxTokens = 100;
constexpr int kTokensBehind = 3;  // left empty, so that a look at the next tokens needs no bound

int32_t NotParsed(int why) {
  ErrOut("Failed to parse JSON: %d\n", why);
  return kFailed;
}

// Decimal to 32 bits, wrapping; ends at the first character that is no digit.
int32_t DecimalOf(std::string_view text) {
  size_t i = 0;
  const bool isNegative = text.starts_with('-');
  if (isNegative || text.starts_with('+')) ++i;
  uint32_t value = 0;
  for (; i < text.size() && text[i] >= '0' && text[i] <= '9'; ++i) {
    value = value * 10 + (static_cast<uint32_t>(text[i]) - '0');
  }
  return static_cast<int32_t>(isNegative ? 0 - value : value);
}

// What is known at the walk's level.
enum class Key {
  kNone,
  kPrev,
  kNext,
  kList,
  kCmdId,
  kStructSize,
  kChannel,
  kCmd,
  kSpeed,
  kVideoChannels,
  kAudioChannels,
  kInfoChannels,
  kCmdAlt,
  kPosition,
  kStart,
  kEnd,
  kArbId,
  kClip,     // identifier or file name
  kAddress,  // of source, destination or clock
  kInterfaceAddress,
};

// By the size first: hardly two keys have the same.
Key KeyOf(std::string_view text) {
  const auto oneOf = [text](std::string_view name, Key key, std::string_view other, Key otherKey) {
    return text == name ? key : text == other ? otherKey : Key::kNone;
  };
  const auto only = [text](std::string_view name, Key key) { return text == name ? key : Key::kNone; };
  switch (text.size()) {
    case 3:
      return oneOf("Cmd", Key::kCmd, "End", Key::kEnd);
    case 4:
      return text == "prev" ? Key::kPrev : oneOf("next", Key::kNext, "list", Key::kList);
    case 5:
      return text == "CmdID"   ? Key::kCmdId
             : text == "arbID" ? Key::kArbId
                               : oneOf("Speed", Key::kSpeed, "Start", Key::kStart);
    case 6:
      return oneOf("ClipID", Key::kClip, "CmdAlt", Key::kCmdAlt);
    case 7:
      return only("Channel", Key::kChannel);
    case 8:
      return oneOf("Position", Key::kPosition, "FileName", Key::kClip);
    case 10:
      return only("StructSize", Key::kStructSize);
    case 12:
      return only("InfoChannels", Key::kInfoChannels);
    case 13:
      return oneOf("VideoChannels", Key::kVideoChannels, "AudioChannels", Key::kAudioChannels);
    case 14:
      return only("clockipaddress", Key::kAddress);
    case 15:
      return only("sourceipaddress", Key::kAddress);
    case 18:
      return only("interfaceipaddress", Key::kInterfaceAddress);
    case 20:
      return only("destinationipaddress", Key::kAddress);
    default:
      return Key::kNone;
  }
}

class JsonReader {
 public:
  // NOLINTNEXTLINE(cppcoreguidelines-pro-type-member-init): tokens are not looked at before they are there
  JsonReader(MediaCmd& command, const char* text) : command_(command), area_(command), text_(text) {}

  int32_t Read() {
    const size_t length = std::strlen(text_);
    if (length > INT_MAX) return NotParsed(JSMN_ERROR_INVAL);  // offsets of tokens are of that type
    count_ = TokensOfWrittenShape({text_, length}, tokens_, kMaxTokens);
    if (count_ == kOtherShape) {
      jsmn_parser parser;
      jsmn_init(&parser);
      count_ = jsmn_parse(&parser, text_, length, tokens_, kMaxTokens);
    }
    if (count_ < 0) return NotParsed(count_);
    std::fill_n(tokens_ + count_, kTokensBehind, jsmntok_t{});
    if (tokens_[0].type != JSMN_OBJECT) {
      ErrOut("Object expected\n");
      return kObjectExpected;
    }
    if (!Is(1, "MediaCmd") && !Is(1, "ClipInfo")) return kNoRoot;
    for (int i = 1; i < count_;) i = ReadKey(i);
    return kRead;
  }

 private:
  // The members that are looked at, as far as there are tokens.
  struct Window {
    int first;
    int end;
  };

  bool IsString(int i) const { return tokens_[i].type == JSMN_STRING; }
  bool IsPrimitive(int i) const { return tokens_[i].type == JSMN_PRIMITIVE; }
  std::string_view TextOf(int i) const {
    return {text_ + tokens_[i].start, static_cast<size_t>(tokens_[i].end - tokens_[i].start)};
  }
  bool Is(int i, std::string_view key) const { return IsString(i) && TextOf(i) == key; }

  template <class Word>
  bool ReadNumber(int i, Word& value) const {
    if (!IsPrimitive(i)) return false;
    value = static_cast<Word>(DecimalOf(TextOf(i)));
    return true;
  }

  // Reads what stands under the key at `i`, if it is one. Returns where the walk goes on.
  int ReadKey(int i) {
    if (!IsString(i)) return i + 1;
    const int value = i + 1;
    const Key key = KeyOf(TextOf(i));
    // The size of whatever stands behind the key: for an object the number of its keys.
    const int size = tokens_[value].size;
    const auto window = [&](int first) {
      return Window{first, static_cast<int>(std::min<int64_t>(int64_t{first} + size, count_))};
    };
    const auto behind = [&](int first) {
      return static_cast<int>(std::min<int64_t>(int64_t{first} + size + 1, kMaxTokens));
    };
    switch (key) {
      case Key::kNone:
        return value;
      case Key::kCmd:
        ReadCommand(window(i + 2));
        return behind(i + 2);
      case Key::kSpeed:
        ReadSpeed(window(i + 2));
        return behind(i + 2);
      case Key::kPosition:
        ReadPoint(window(i + 2), command_.Position, CF_USE_POSITION, CF_USE_POSITION_OFFSET);
        return behind(i + 2);
      case Key::kArbId:
        ReadBinary(window(i + 2));
        return behind(i + 2);
      case Key::kCmdAlt:
        ReadCmdAlt(window(i + 1));
        return behind(i + 1);
      case Key::kStart:
        ReadPoint(window(i + 1), command_.Start, CF_USE_START, CF_USE_START_OFFSET);
        return behind(i + 1);
      case Key::kEnd:
        ReadPoint(window(i + 1), command_.End, CF_USE_END, CF_USE_END_OFFSET);
        return behind(i + 1);
      default:
        ReadPlain(key, value);
        return value;
    }
  }

  // A key with a plain number or a text.
  void ReadPlain(Key key, int value) {
    switch (key) {
      case Key::kPrev:
        return ReadLink(command_.prev, value);
      case Key::kNext:
        return ReadLink(command_.next, value);
      case Key::kList:
        return ReadLink(command_.list, value);
      case Key::kCmdId:
        ReadNumber(value, command_.CmdID);
        return;
      case Key::kStructSize:
        ReadNumber(value, command_.StructSize);
        return;
      case Key::kChannel:
        ReadNumber(value, command_.Channel);
        return;
      case Key::kVideoChannels:
        return ReadPreset(command_.VideoChannels, value);
      case Key::kAudioChannels:
        return ReadPreset(command_.AudioChannels, value);
      case Key::kInfoChannels:
        return ReadPreset(command_.InfoChannels, value);
      default:
        return ReadText(key, value);
    }
  }

  void ReadLink(void*& link, int value) {
    uint32_t low = 0;
    if (!ReadNumber(value, low)) return;
    link = reinterpret_cast<void*>((reinterpret_cast<uintptr_t>(link) & 0xFFFFFFFF00000000u) | low);
  }

  void ReadPreset(int32_t& field, int value) {
    command_.Flags |= CF_USE_PRESETS;
    ReadNumber(value, field);
  }

  // Clip identifier and file name share one place in this form.
  void ReadText(Key key, int value) {
    command_.Flags |= CF_USE_CLIP_ID;
    if (!IsString(value)) return;
    if (key == Key::kClip) {
      area_.PutText(kClipIdOffset, TextOf(value));
    } else if (key == Key::kAddress) {
      area_.PutAddress(TextOf(value));
    } else {
      area_.PutInterfaceAddress(TextOf(value));
    }
  }

  // In this form the mere presence of a flag counts, whatever its value.
  template <size_t N>
  void ReadFlag(int i, const FlagName (&flags)[N]) {
    for (const FlagName& flag : flags) {
      if (Is(i, flag.name)) command_.Flags |= flag.flag;
    }
  }

  void ReadCommand(Window window) {
    static constexpr FlagName kFlags[] = {
        {CF_DEFERRED, "Deferred"},
        {CF_OVERRIDE_DEFERRED, "cfOverideDeferred"},
        {CF_OVERRIDE_DEFERRED, "cfOverrideDeferred"},
        {CF_LOOP, "Loop"},
        {CF_TRIGGER, "Trigger"},
        {CF_RIPPLE, "Ripple"},
        {CF_INVERT, "Invert"},
        {CF_TEST, "Test"},
        {CF_NO_RETURN, "NoReturn"},
        {CF_USE_ALL_IDS, "UseAllIDs"},
        {CF_USE_CLIP_ID, "UseClipID"},
        {CF_NO_CLIP_FILES, "NoClipFiles"},
        {CF_NO_TC_SPACES, "NoTCSpaces"},
    };
    for (int i = window.first; i < window.end; ++i) {
      if (Is(i, "Value")) {
        ReadNumber(i + 1, command_.Cmd);
      } else if (Is(i, "String")) {
        ReadCommandWord(i + 1);
      } else {
        ReadFlag(i, kFlags);
      }
    }
  }

  void ReadCommandWord(int value) {
    if (!IsString(value) || !CommandFromText(TextOf(value), command_.Cmd)) return;
    // Kept so on purpose: in this form both words have always started playback.
    if (command_.Cmd == ctTerminate || command_.Cmd == ctAbort) command_.Cmd = ctPlay;
  }

  void ReadSpeed(Window window) {
    for (int i = window.first; i < window.end; ++i) {
      if (Is(i, "Value")) {
        command_.Flags |= CF_USE_SPEED;
        ReadNumber(i + 1, command_.Speed);
      } else if (Is(i, "IsShuttle")) {
        command_.Flags |= CF_IS_SHUTTLE;
      }
    }
  }

  void ReadCmdAlt(Window window) {
    // "TimeMs" is not among them: it is written, but no reader of this form knows it.
    static constexpr FlagName kFlags[] = {{CF_TIME_TARGET, "TimeTarget"},
                                          {CF_TIME_HOUSE_CLOCK, "TimeHouseClock"}};
    command_.Flags |= CF_USE_CMD_ALT;
    for (int i = window.first; i < window.end; ++i) {
      if (Is(i, "Value")) {
        ReadNumber(i + 1, command_.CmdAlt);
      } else {
        ReadFlag(i, kFlags);
      }
    }
  }

  void ReadPoint(Window window, int32_t& field, uint32_t presentFlag, uint32_t offsetFlag) {
    command_.Flags |= presentFlag;
    for (int i = window.first; i < window.end; ++i) {
      if (Is(i, "Value")) {
        ReadNumber(i + 1, field);
      } else if (Is(i, "TcType")) {
        if (!ReadNumber(i + 1, tcType_) && Is(i + 1, "TcString") && IsString(i + 2)) {
          ReadTimecode(TextOf(i + 2), field);
        }
      } else if (Is(i, "IsOffset")) {
        command_.Flags |= offsetFlag;
      } else {
        ReadFlag(i, kPointFlags);
      }
    }
  }

  void ReadTimecode(std::string_view text, int32_t& field) {
    char lowered[260];
    const size_t count = std::min(text.size(), sizeof lowered - 1);
    std::transform(text.begin(), text.begin() + static_cast<ptrdiff_t>(count), lowered, AsciiLower);
    lowered[count] = '\0';
    uint32_t timecode = static_cast<uint32_t>(field);
    TimeCodeFromString(lowered, tcType_ | kReadTimecode, &timecode);
    field = static_cast<int32_t>(timecode);
  }

  void ReadBinary(Window window) {
    int32_t length = 0;
    for (int i = window.first; i < window.end; ++i) {
      if (Is(i, "length")) {
        ReadNumber(i + 1, length);
      } else if (Is(i, "Value") && IsString(i + 1)) {
        area_.PutHex(length, TextOf(i + 1));
      }
    }
  }

  MediaCmd& command_;
  RecordArea area_;
  const char* text_;
  uint32_t tcType_ = 0;
  int count_ = 0;
  jsmntok_t tokens_[kMaxTokens + kTokensBehind];
};

}  // namespace

int32_t MediaCmdFromJSON(MediaCmd* command, const uint32_t*, const char* text) {
  if (command == nullptr) return kFailed;
  if (text == nullptr) return NotParsed(JSMN_ERROR_INVAL);
  return JsonReader(*command, text).Read();
}

}  // namespace qln
