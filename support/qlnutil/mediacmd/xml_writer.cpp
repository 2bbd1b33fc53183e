// Writes a command as XML: into a document, or at once as the compact text that the document would print.

#include <string>

#include "kxutil/kxutil.h"
#include "kxutil/tinyxml_header.h"
#include "qlnutil/mediacmd.h"
#include "qlnutil/mediacmd/command_walk.h"
#include "qlnutil/mediacmd/text_buffer.h"

namespace qln {
namespace {

// What the two ways of writing XML share: the form itself. `Nodes` adds elements below the root, attributes
// to the last element, and a text into it.
template <class Nodes>
class XmlEmitter {
 public:
  static constexpr bool kShuttleBesideSpeed = true;

  explicit XmlEmitter(Nodes& nodes) : nodes_(nodes) {}

  void Link(std::string_view name, const void* pointer) {
    Number(name, static_cast<int32_t>(reinterpret_cast<uintptr_t>(pointer)));
  }
  void Number(std::string_view name, int32_t value) {
    BeginValue(name, value);
    EndValue();
  }
  void BeginWord(std::string_view name, int32_t value, std::string_view text) {
    BeginValue(name, value);
    text_ = text;
  }
  void BeginTimecode(std::string_view name, int32_t value, std::string_view type, std::string_view text) {
    BeginWord(name, value, text);
    if (!type.empty()) nodes_.Attribute("TcType", type);
  }
  void BeginValue(std::string_view name, int32_t value) {
    nodes_.Begin(name);
    nodes_.Attribute("Value", value);
  }
  void Flag(std::string_view name) { nodes_.Attribute(name, 1); }
  void End() { nodes_.EndWithText(text_); }
  void EndValue() { nodes_.End(); }

  void Text(std::string_view name, std::string_view text) {
    nodes_.Begin(name);
    nodes_.EndWithText(text);
  }
  void AddressNumber(std::string_view name, std::string_view, int32_t value) { Number(name, value); }
  void Binary(bool isBase64, int64_t length, std::string_view text) {
    nodes_.Begin("arbID");
    nodes_.Attribute("Type", isBase64 ? "base64" : "hex");
    nodes_.Attribute("length", NumberText::Decimal(length).view());
    nodes_.EndWithText(text);
  }
  void WarnLongText() { Warn("Exception: MediaCmdToXML() "); }
  void WarnFileName() { Warn("Exception:  MediaCmdToXML(ClipID) "); }

 private:
  static void Warn(const char* what) { ErrFmtOut(KX_SEVERITY_WARNING, 0, 0, "WARNING(XMLmCmd): %s\n", what); }
  Nodes& nodes_;
  std::string_view text_;
};

// Nodes of a document, which owns them from the moment they are made. Names are literals and have a
// terminator.
class DocumentNodes {
 public:
  explicit DocumentNodes(TiXmlDocument& document) {
    document.LinkEndChild(new TiXmlDeclaration("1.0", "iso-8859-1", ""));
    root_ = new TiXmlElement("MediaCmd");
    document.LinkEndChild(root_);
    root_->LinkEndChild(new TiXmlComment(kCommandComment.data()));
  }
  void Begin(std::string_view name) {
    element_ = new TiXmlElement(name.data());
    root_->LinkEndChild(element_);
  }
  void Attribute(std::string_view name, int32_t value) { element_->SetAttribute(name.data(), value); }
  void Attribute(std::string_view name, std::string_view value) {
    element_->SetAttribute(std::string(name), std::string(value));
  }
  void EndWithText(std::string_view text) { element_->LinkEndChild(new TiXmlText(std::string(text))); }
  void End() {}

 private:
  TiXmlElement* root_;
  TiXmlElement* element_ = nullptr;
};

// The compact text of such a document, as the XML library prints it, without the document. Attributes hold
// nothing that would have to be escaped.
class CompactNodes {
 public:
  explicit CompactNodes(TextBuffer& out) : out_(out) {
    out_.Append("<?xml version=\"1.0\" encoding=\"iso-8859-1\" ?><MediaCmd><!--", kCommandComment, "-->");
  }
  void Finish() { out_.Append("</MediaCmd>"); }

  void Begin(std::string_view name) {
    name_ = name;
    out_.Append('<', name);
  }
  void Attribute(std::string_view name, int32_t value) { out_.Append(' ', name, "=\"", value, '"'); }
  void Attribute(std::string_view name, std::string_view value) { out_.Append(' ', name, "=\"", value, '"'); }
  void EndWithText(std::string_view text) {
    out_.Append('>');
    AppendEscaped(text);
    out_.Append("</", name_, '>');
  }
  void End() { out_.Append(" />"); }

 private:
  // The library escapes what needs it, by its own rules; most texts need nothing.
  void AppendEscaped(std::string_view text) {
    const auto isPlain = [](char c) {
      return static_cast<unsigned char>(c) >= 32 && c != '&' && c != '<' && c != '>' && c != '"' && c != '\'';
    };
    if (std::all_of(text.begin(), text.end(), isPlain)) {
      out_.Append(text);
      return;
    }
    std::string escaped;
    TiXmlBase::EncodeString(std::string(text), &escaped);
    out_.Append(escaped);
  }
  TextBuffer& out_;
  std::string_view name_;
};

template <class Nodes>
bool WriteCommand(MediaCmd& command, uint32_t tcType, Nodes& nodes) {
  XmlEmitter<Nodes> emitter(nodes);
  return CommandWalk(command, static_cast<uint8_t>(tcType), emitter).Run();
}

}  // namespace
}  // namespace qln

uint32_t MediaCmdToXML(TiXmlDocument* document, MediaCmd* command, uint32_t tcType) {
  if (document == nullptr || command == nullptr) return 0;
  try {
    qln::DocumentNodes nodes(*document);
    qln::WriteCommand(*command, tcType, nodes);
  } catch (...) {
    // No memory: the document keeps what was added so far.
  }
  return 0;
}

uint32_t MediaCmdToXMLString(char** text, MediaCmd* command, uint32_t tcType) {
  if (text == nullptr || command == nullptr) return 0;
  try {
    qln::TextBuffer out;
    qln::CompactNodes nodes(out);
    if (!qln::WriteCommand(*command, tcType, nodes)) return 0;
    nodes.Finish();
    char* const block = out.ToBlock();
    if (block != nullptr) *text = block;
  } catch (...) {
    // No memory: the caller's pointer stays as it was.
  }
  return 0;
}

uint32_t MediaCmdFreeXMLString(char** text) {
  if (text == nullptr) return 0;
  if (*text != nullptr) KXFree(*text);
  *text = nullptr;
  return 0;
}
