// Reading and writing the XML of a project so that every text survives and no document is too much.

#include "qlnutil/files/project_document.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "kxutil/file_replacement.h"
#include "kxutil/utf8_text.h"
#include "kxutil/xml_prescan.h"
#include "qlnutil/files/file_beside.h"
#include "qlnutil/kxprojecttoxml.h"

namespace qln {

namespace {

// TinyXML counts in int, and a byte may take six characters in a document.
static_assert(uint64_t{KX_PROJECT_LARGEST_TEXT} * 6 < INT_MAX + uint64_t{1});
constexpr size_t kLargestDocument = size_t{INT_MAX};

struct CloseFile {
  void operator()(std::FILE* file) const { (void)std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, CloseFile>;

// The text of a plain file, up to its first zero byte. False if there is none or it cannot be read. Read in
// pieces, since the size of a file with holes says nothing about how much there is in it.
bool ReadPlainFile(const char* path, std::string& text) {
  // Opened without waiting, in case it is a pipe.
  const int descriptor = open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (descriptor < 0) return false;
  const File file(fdopen(descriptor, "rb"));
  if (file == nullptr) {
    close(descriptor);
    return false;
  }
  struct stat status;
  if (fstat(descriptor, &status) != 0 || !S_ISREG(status.st_mode)) return false;
  char piece[size_t{1} << 16];
  while (text.size() <= kLargestDocument) {
    const size_t count = std::fread(piece, 1, sizeof piece, file.get());
    const size_t length = strnlen(piece, count);
    text.append(piece, length);
    if (length < count) return true;
    if (count < sizeof piece) return std::ferror(file.get()) == 0;
  }
  return false;  // too large
}

// Line ends as XML wants them: CR LF and CR are LF.
void NormalizeText(std::string& text) {
  size_t to = 0;
  for (size_t from = 0; from < text.size(); ++from) {
    if (text[from] == '\r') {
      text[to++] = '\n';
      if (text[from + 1] == '\n') ++from;  // a zero stands behind the last one
    } else {
      text[to++] = text[from];
    }
  }
  text.resize(to);
}

constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
constexpr std::string_view kHexReference = "&#x";

}  // namespace

bool LoadProjectDocument(TiXmlDocument& document, const char* path) {
  document = TiXmlDocument();
  std::string text;
  if (!ReadPlainFile(path, text)) return false;
  NormalizeText(text);

  // Taken for UTF-8, a lone high byte in front of a quote would swallow the quote. A text that is no UTF-8 is
  // therefore read byte for byte.
  const bool legacy = !IsUtf8(text);
  if (legacy && text.compare(0, kByteOrderMark.size(), kByteOrderMark) == 0) {
    text.erase(0, kByteOrderMark.size());
  }
  const XmlLimits limits = {.attributes = KX_PROJECT_LARGEST_SETTINGS};
  text.resize(SafeXmlLength(text.data(), text.size(), legacy, limits));
  text.append(4, '\0');  // the parser may step a few bytes over the end
  document.Parse(text.c_str(), nullptr, legacy ? TIXML_ENCODING_LEGACY : TIXML_DEFAULT_ENCODING);
  return !document.Error();
}

namespace {

// Calls `visit` with every attribute and every text of a node and of those in it.
template <class Visit>
void VisitTexts(TiXmlNode& node, const Visit& visit) {
  if (TiXmlElement* const element = node.ToElement()) {
    for (TiXmlAttribute* a = element->FirstAttribute(); a != nullptr; a = a->Next()) {
      visit(a->ValueStr(), [a](const std::string& value) { a->SetValue(value); });
    }
  } else if (TiXmlText* const text = node.ToText()) {
    if (!text->CDATA()) {
      visit(text->ValueStr(), [text](const std::string& value) { text->SetValue(value); });
    }
  }
  for (TiXmlNode* child = node.FirstChild(); child != nullptr; child = child->NextSibling()) {
    VisitTexts(*child, visit);
  }
}

// Some releases of the writer leave "&#x" in a text as it is, and a reader would take it for a character.
bool WriterLeavesReferences() {
  std::string encoded;
  TiXmlBase::EncodeString("&#x41;", &encoded);
  return encoded == "&#x41;";
}

// As a reference to the ampersand it is written through by those, and read back.
std::string WithHexReferencesHidden(const std::string& text) {
  std::string hidden;
  size_t from = 0;
  for (size_t at; (at = text.find(kHexReference, from)) != std::string::npos; from = at + 1) {
    hidden.append(text, from, at - from).append("&#x26;");
  }
  return hidden.append(text, from);
}

// Writes the document and closes the file. False if not all of it went out.
bool WriteDocument(const TiXmlDocument& document, File file) {
  if (file == nullptr) return false;
  document.SaveFile(file.get());
  const bool written = std::ferror(file.get()) == 0;
  return std::fclose(file.release()) == 0 && written;
}

// Replaces a plain file in one step, the file behind symbolic links included, also if it is not there yet; a
// device or pipe is written to.
bool WriteFile(const TiXmlDocument& document, const char* path) {
  const std::string target = FileBehindLinks(path);
  struct stat old;
  const bool exists = stat(target.c_str(), &old) == 0;
  if (exists && !S_ISREG(old.st_mode)) return WriteDocument(document, File(std::fopen(path, "wb")));
  if (exists && access(target.c_str(), W_OK) != 0) return false;
  File file;
  FileBeside beside(target, [&file, exists](const char* name) {
    // For nobody else's eyes until it has the rights of the file that it replaces.
    const int descriptor = open(name, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, exists ? 0600 : 0666);
    if (descriptor < 0) return errno;
    file.reset(fdopen(descriptor, "wb"));
    if (file == nullptr) close(descriptor);
    return 0;
  });
  return beside.made() && (!exists || TakeOver(target, old, beside.descriptor())) &&
         WriteDocument(document, std::move(file)) && beside.Replace();
}

}  // namespace

bool SaveProjectDocument(const TiXmlDocument& document, const char* path) {
  if (*path == '\0') return false;
  TiXmlDocument copy(document);
  bool tooLarge = false;
  const bool hides = WriterLeavesReferences();
  VisitTexts(copy, [&tooLarge, hides](const std::string& text, const auto& replace) {
    tooLarge |= text.size() > KX_PROJECT_LARGEST_TEXT;
    if (hides && text.find(kHexReference) != std::string::npos) replace(WithHexReferencesHidden(text));
  });
  return !tooLarge && WriteFile(copy, path);
}

bool IsAttributeName(const char* text) {
  const auto letter = [](unsigned char c) {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '_' || c >= 127;
  };
  const std::string_view name(text);
  // Where the parser looks for a name it skips these three characters as blanks.
  for (const std::string_view mark : {"\xEF\xBB\xBF", "\xEF\xBF\xBE", "\xEF\xBF\xBF"}) {
    if (name.substr(0, mark.size()) == mark) return false;
  }
  return !name.empty() && letter(static_cast<unsigned char>(name[0])) &&
         std::all_of(name.begin(), name.end(), [&letter](char c) {
           return letter(static_cast<unsigned char>(c)) || (c >= '0' && c <= '9') || c == '-' || c == '.' ||
                  c == ':';
         });
}

}  // namespace qln
