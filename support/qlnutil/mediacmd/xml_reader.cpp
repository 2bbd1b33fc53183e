// Reads a command from an XML document: tolerant, field by field, each by the first child of its name. Texts
// of the shape that our own writer gives take a short way without a document.

#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <optional>

#include "kxutil/tinyxml_header.h"
#include "kxutil/xml_prescan.h"
#include "qlnutil/mediacmd.h"
#include "qlnutil/mediacmd/command_words.h"
#include "qlnutil/mediacmd/flat_xml.h"
#include "qlnutil/mediacmd/record_area.h"
#include "qlnutil/mediacmd/timecode_words.h"

namespace qln {
namespace {

constexpr uint32_t kRead = 0;
constexpr uint32_t kNoCommand = 0xFFFFFFFFu;
constexpr uint32_t kNoRoot = 0xFFFFFFFEu;
constexpr uint32_t kRootIsNoElement = 0xFFFFFFFDu;

// The two sources of elements. Names are literals and have a terminator.
const char* AttributeOf(const TiXmlElement& element, std::string_view name) {
  return element.Attribute(name.data());
}
const char* AttributeOf(const FlatXml::Element& element, std::string_view name) {
  return element.Attribute(name);
}

// A comment or a text of that name hides the element behind it.
const TiXmlElement* ChildOf(const TiXmlElement& root, std::string_view name) {
  const TiXmlNode* const node = root.FirstChild(name.data());
  return node != nullptr ? node->ToElement() : nullptr;
}
const FlatXml::Element* ChildOf(const FlatXml& root, std::string_view name) { return root.Find(name); }

// A number as our own writer gives it, of up to nine digits and nothing else; nothing for others.
std::optional<int32_t> PlainNumber(const char* text) {
  const bool negative = *text == '-';
  const char* const digits = negative ? text + 1 : text;
  const char* at = digits;
  int32_t number = 0;
  for (; *at >= '0' && *at <= '9' && at - digits < 9; ++at) number = number * 10 + (*at - '0');
  if (at == digits || *at != '\0') return {};
  return negative ? -number : number;
}

// Stores the number at the head of an attribute, as a "%d" scan would: blanks may stand in front, anything
// behind, and a number too large for the scan's long is cut. Returns false, and leaves `value`, where there
// is none.
template <class Element, class Word>
bool ReadNumber(const Element& element, std::string_view name, Word& value) {
  const char* const text = AttributeOf(element, name);
  if (text == nullptr) return false;
  if (const std::optional<int32_t> plain = PlainNumber(text)) {
    value = static_cast<Word>(*plain);
    return true;
  }
  char* end = nullptr;
  const long number = std::strtol(text, &end, 10);
  if (end == text) return false;
  value = static_cast<Word>(number);
  return true;
}

template <class Element>
bool IsSet(const Element& element, std::string_view name) {
  int32_t value = 0;
  return ReadNumber(element, name, value) && value != 0;
}

template <class Root, class Element>
class XmlReader {
 public:
  XmlReader(MediaCmd& command, uint32_t tcType, const Root& root)
      : command_(command), area_(command), tcType_(tcType), root_(root) {}

  void Read() {
    ReadLink("prev", command_.prev);
    ReadLink("next", command_.next);
    ReadLink("list", command_.list);
    ReadField("CmdID", command_.CmdID);
    ReadField("StructSize", command_.StructSize);
    ReadField("Channel", command_.Channel);
    ReadCommand();
    ReadSpeed();
    ReadPreset("VideoChannels", command_.VideoChannels);
    ReadPreset("AudioChannels", command_.AudioChannels);
    ReadPreset("InfoChannels", command_.InfoChannels);
    ReadCmdAlt();
    ReadPoint("Position", command_.Position, CF_USE_POSITION, CF_USE_POSITION_OFFSET);
    ReadPoint("Start", command_.Start, CF_USE_START, CF_USE_START_OFFSET);
    ReadPoint("End", command_.End, CF_USE_END, CF_USE_END_OFFSET);
    ReadClipId();
    ReadFileName();
    ReadBinary();
    ReadAddresses();
  }

 private:
  const Element* Child(std::string_view name) const { return ChildOf(root_, name); }
  const char* TextOf(std::string_view name) const {
    const Element* const element = Child(name);
    return element != nullptr ? element->GetText() : nullptr;
  }
  void SetFlagWhere(const Element& element, std::string_view name, uint32_t flag) {
    if (IsSet(element, name)) command_.Flags |= flag;
  }

  // Texts carry the low half of a link; the upper half stays.
  void ReadLink(std::string_view name, void*& link) {
    const Element* const element = Child(name);
    uint32_t low = 0;
    if (element == nullptr || !ReadNumber(*element, "Value", low)) return;
    static_assert(sizeof(uintptr_t) == 8);
    link = reinterpret_cast<void*>((reinterpret_cast<uintptr_t>(link) & 0xFFFFFFFF00000000u) | low);
  }

  template <class Word>
  void ReadField(std::string_view name, Word& field) {
    const Element* const element = Child(name);
    if (element != nullptr) ReadNumber(*element, "Value", field);
  }

  void ReadCommand() {
    const Element* const element = Child("Cmd");
    if (element == nullptr) return;
    if (!ReadNumber(*element, "Value", command_.Cmd)) {
      const char* const word = element->GetText();
      if (word != nullptr) CommandFromText(word, command_.Cmd);
    }
    for (const FlagName& flag : kCommandFlags) {
      if (flag.flag != CF_OVERRIDE_DEFERRED) SetFlagWhere(*element, flag.name, flag.flag);
    }
    // Old hosts wrote the first spelling; the name that our own writer uses is read by nobody.
    int32_t isOverride = 0;
    if (ReadNumber(*element, "cfOverideDeferred", isOverride) ||
        ReadNumber(*element, "cfOverrideDeferred", isOverride)) {
      if (isOverride != 0) command_.Flags |= CF_OVERRIDE_DEFERRED;
    }
  }

  void ReadSpeed() {
    const Element* const element = Child("Speed");
    if (element == nullptr) return;
    ReadNumber(*element, "Value", command_.Speed);
    command_.Flags |= CF_USE_SPEED;
    SetFlagWhere(*element, "IsShuttle", CF_IS_SHUTTLE);
  }

  void ReadPreset(std::string_view name, int32_t& field) {
    const Element* const element = Child(name);
    if (element == nullptr) return;
    ReadNumber(*element, "Value", field);
    command_.Flags |= CF_USE_PRESETS;
  }

  void ReadCmdAlt() {
    const Element* const element = Child("CmdAlt");
    if (element == nullptr) return;
    ReadNumber(*element, "Value", command_.CmdAlt);
    command_.Flags |= CF_USE_CMD_ALT;
    for (const FlagName& flag : kCmdAltTimes) SetFlagWhere(*element, flag.name, flag.flag);
  }

  void ReadPoint(std::string_view name, int32_t& field, uint32_t presentFlag, uint32_t offsetFlag) {
    const Element* const element = Child(name);
    if (element == nullptr) return;
    command_.Flags |= presentFlag;
    if (!ReadNumber(*element, "Value", field)) ReadTimecode(*element, field);
    SetFlagWhere(*element, "IsOffset", offsetFlag);
    for (const FlagName& flag : kPointFlags) SetFlagWhere(*element, flag.name, flag.flag);
  }

  // A type given as a number holds for the points that follow, too.
  void ReadTimecode(const Element& element, int32_t& field) {
    ReadNumber(element, "TcType", tcType_);
    const char* const text = element.GetText();
    if (text == nullptr) return;
    uint32_t timecode = static_cast<uint32_t>(field);
    TimeCodeFromString(text, tcType_ | kReadTimecode, &timecode);
    field = static_cast<int32_t>(timecode);
  }

  // Cuts the file name, which only an element of its own brings back.
  void ReadClipId() {
    const Element* const element = Child("ClipID");
    if (element == nullptr) return;
    if (const char* const text = element->GetText(); text != nullptr) {
      const int64_t size = SignedStructSize(command_) - kClipIdOffset;
      const int64_t room = size > 9 ? int64_t{kClipIdCharacters} : size - 1;
      CopyBounded(area_.bytes() + kClipIdOffset, text,
                  static_cast<size_t>(std::clamp<int64_t>(room, 0, kClipIdCharacters)));
      command_.Flags |= CF_USE_CLIP_ID;
    } else {
      area_.bytes()[kClipIdOffset] = '\0';
    }
    area_.bytes()[kFileNameOffset] = '\0';
  }

  void ReadFileName() {
    const char* const text = TextOf("FileName");
    if (text == nullptr) return;
    if (SignedStructSize(command_) - kClipIdOffset > 9) {
      const int64_t last = std::min(SignedStructSize(command_), area_.end()) - 1;
      CopyBounded(area_.bytes() + kFileNameOffset, text, static_cast<size_t>(last - kFileNameOffset));
      area_.bytes()[last] = '\0';
    }
    command_.Flags |= CF_USE_CLIP_ID;
  }

  // Whatever the type says, the text is taken for hexadecimal.
  void ReadBinary() {
    const Element* const element = Child("arbID");
    if (element == nullptr) return;
    int32_t length = 0;
    ReadNumber(*element, "length", length);
    const char* const text = element->GetText();
    if (text == nullptr && length != 0) return;
    area_.PutHex(length, text != nullptr ? text : "");
  }

  void ReadAddresses() {
    for (const std::string_view name : {"sourceipaddress", "destinationipaddress"}) {
      if (const char* const text = TextOf(name); text != nullptr) area_.PutAddress(text);
    }
    if (const char* const text = TextOf("interfaceipaddress"); text != nullptr)
      area_.PutInterfaceAddress(text);
    if (const char* const text = TextOf("clockipaddress"); text != nullptr) area_.PutAddress(text);
  }

  MediaCmd& command_;
  RecordArea area_;
  uint32_t tcType_;
  const Root& root_;
};

template <class Element, class Root>
void ReadCommand(MediaCmd& command, const uint32_t* tcType, const Root& root) {
  XmlReader<Root, Element>(command, tcType != nullptr ? *tcType : kTcDropFrame, root).Read();
}

uint32_t ReadDocument(MediaCmd* command, const uint32_t* tcType, const TiXmlDocument& document) {
  if (command == nullptr) return kNoCommand;
  const TiXmlNode* root = document.FirstChild("MediaCmd");
  if (root == nullptr) root = document.FirstChild("ClipInfo");
  if (root == nullptr) return kNoRoot;
  if (root->ToElement() == nullptr) return kRootIsNoElement;
  ReadCommand<TiXmlElement>(*command, tcType, *root->ToElement());
  return kRead;
}

// The parsers want a private text, TinyXML with a few zeros behind it. It stands on the stack where it is
// short.
class PrivateText {
 public:
  // NOLINTNEXTLINE(cppcoreguidelines-pro-type-member-init): kilobytes that nobody looks at
  PrivateText(const char* text, size_t size) {
    constexpr size_t kZerosBehind = 4;
    if (size + kZerosBehind > sizeof stack_) heap_.reset(new (std::nothrow) char[size + kZerosBehind]);
    text_ = size + kZerosBehind > sizeof stack_ ? heap_.get() : stack_;
    if (text_ == nullptr) return;
    std::memcpy(text_, text, size);
    std::memset(text_ + size, 0, kZerosBehind);
  }
  PrivateText(const PrivateText&) = delete;
  PrivateText& operator=(const PrivateText&) = delete;

  char* get() { return text_; }  // null where there was no memory

 private:
  char stack_[2048];
  std::unique_ptr<char[]> heap_;
  char* text_;
};

uint32_t ReadText(MediaCmd& command, const uint32_t* tcType, const char* text) {
  const size_t size = std::strlen(text);
  {
    PrivateText copy(text, size);
    if (copy.get() == nullptr) return kNoRoot;
    FlatXml flat;
    if (flat.Parse(copy.get())) {
      ReadCommand<FlatXml::Element>(command, tcType, flat);
      return kRead;
    }
  }
  PrivateText copy(text, SafeXmlLength(text, size));
  if (copy.get() == nullptr) return kNoRoot;
  TiXmlDocument document;
  document.Parse(copy.get());
  return ReadDocument(&command, tcType, document);
}

}  // namespace
}  // namespace qln

// The document is the callee's own: that is the shape of the interface.
uint32_t MediaCmdFromXML(MediaCmd* command, const uint32_t* tcType,
                         TiXmlDocument document) {  // NOLINT(performance-unnecessary-value-param)
  return qln::ReadDocument(command, tcType, document);
}

uint32_t MediaCmdFromXMLString(MediaCmd* command, const uint32_t* tcType, const char* text) {
  if (command == nullptr) return qln::kNoCommand;
  initMediaCmd(command, ctStop);
  if (text == nullptr) return qln::kNoRoot;
  try {
    return qln::ReadText(*command, tcType, text);
  } catch (...) {
    return qln::kNoRoot;  // no memory for the document
  }
}
