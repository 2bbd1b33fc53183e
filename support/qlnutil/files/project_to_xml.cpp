// CKXProjectToXML: the names, what the document holds of them, and where the files are found again.

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <iterator>

#include "kxutil/open_file.h"
#include "kxutil/tinyxml_header.h"
#include "qlnutil/files/file_beside.h"
#include "qlnutil/files/project_document.h"
#include "qlnutil/kxprojecttoxml.h"

namespace {

constexpr char kData[] = "Data";
constexpr char kSettings[] = "Settings";

// The elements of a project in the order in which they stand.
constexpr const char* kElements[] = {"ClipList", "EdlList", kSettings};

const char* TextOf(const char* text) { return text != nullptr ? text : ""; }

// Copies at most 259 characters and a terminator.
void CopyCut(char* buffer, const char* text) {
  const size_t length = strnlen(text, KX_PATH_SIZE - 1);
  std::memcpy(buffer, text, length);
  buffer[length] = '\0';
}

bool FitsName(const char* path) { return strnlen(path, KX_PATH_SIZE) < KX_PATH_SIZE; }

void CopyOut(char* buffer, const char* text) {
  if (buffer != nullptr) std::strcpy(buffer, text);
}

// The first node of that name counts; if it is a comment or the like, there is no element.
TiXmlElement* FindElement(TiXmlDocument* document, const char* name) {
  TiXmlNode* const node = document != nullptr ? document->FirstChild(name) : nullptr;
  return node != nullptr ? node->ToElement() : nullptr;
}

// A text block of the utility layer; null without memory.
class TextBlock {
 public:
  explicit TextBlock(size_t size) : text_(static_cast<char*>(KXAlloc(size))) {}
  ~TextBlock() {
    if (text_ != nullptr) KXFree(text_);
  }
  TextBlock(const TextBlock&) = delete;
  TextBlock& operator=(const TextBlock&) = delete;

  char* get() const { return text_; }

 private:
  char* text_;
};

// Sets "Data" to the text of a file, up to its first zero byte; leaves it alone where there is none to be
// had.
void TakeTextOver(TiXmlElement& element, const char* path) {
  qln::OpenFile file;
  if (!file.Open(path)) return;
  const uint32_t size = kxOSGetFileSize(file.handle(), nullptr);
  if (size == 0 || size > KX_PROJECT_LARGEST_TEXT) return;
  const TextBlock block(size_t{size} + 1);
  if (block.get() == nullptr) return;
  uint32_t count = 0;
  kxOSReadFile(file.handle(), block.get(), size, &count, nullptr);
  if (count == 0 || count > size) return;
  block.get()[count] = '\0';
  element.SetAttribute(kData, block.get());
}

// Makes the file if it is new: whole or not at all, as a file that is there is never written again. May throw
// std::bad_alloc.
void WriteTextOut(const char* path, const char* text) {
  const auto length = static_cast<uint32_t>(std::strlen(text));  // a document has less than 2 GB
  qln::OpenFile file;
  qln::FileBeside beside(path, [&file](const char* name) {
    if (file.Make(name)) return 0;
    const int error = static_cast<int>(kxOSGetLastError());
    return error != 0 ? error : EIO;
  });
  const bool written = beside.made() && file.Write(text, length);
  if (file.Close() && written) beside.PutWhereNothingIs();
}

// A path in its pieces.
struct PathPieces {
  char drive[KX_DRIVE_SIZE] = {};
  char directory[KX_DIRECTORY_SIZE] = {};
  char name[KX_NAME_SIZE] = {};
  char extension[KX_EXTENSION_SIZE] = {};
  bool whole;  // nothing had to be cut

  explicit PathPieces(const char* path) {
    kxOSSplitPath(path, drive, directory, name, extension);
    whole = std::strlen(drive) + std::strlen(directory) + NameLength() == std::strlen(path);
  }
  size_t NameLength() const { return std::strlen(name) + std::strlen(extension); }
};

// The value of the decimal that a text begins with: from -2^31 to 2^32 - 1 modulo 2^32, else the nearest of
// these.
uint32_t DecimalValue(const char* text) {
  while (*text != '\0' && std::strchr(" \t\n\v\f\r", *text) != nullptr) ++text;
  const bool negative = *text == '-';
  if (*text == '-' || *text == '+') ++text;
  const uint64_t limit = negative ? 0x80000000u : 0xFFFFFFFFu;
  uint64_t value = 0;
  for (; *text >= '0' && *text <= '9'; ++text) {
    value = std::min(value * 10 + static_cast<uint64_t>(*text - '0'), limit);
  }
  return static_cast<uint32_t>(negative ? 0 - value : value);
}

}  // namespace

constinit const CKXProjectToXML::CarriedFile CKXProjectToXML::kClip = {
    "ClipList", "FileName", &CKXProjectToXML::clipList_, &CKXProjectToXML::clipFile_};
constinit const CKXProjectToXML::CarriedFile CKXProjectToXML::kEdl = {
    "EdlList", "EdlName", &CKXProjectToXML::edlList_, &CKXProjectToXML::edlName_};

CKXProjectToXML::CKXProjectToXML()
    : xmlName_{},
      clipFile_{},
      edlName_{},
      document_(nullptr),
      clipList_(nullptr),
      edlList_(nullptr),
      settings_(nullptr) {
  try {
    document_ = new TiXmlDocument;
    for (const char* name : kElements) NeedElement(name);
  } catch (...) {
    delete document_;
    document_ = nullptr;
  }
  FindElements();
}

CKXProjectToXML::~CKXProjectToXML() {
  delete document_;
  document_ = nullptr;
  FindElements();
}

CKXProjectToXML& CKXProjectToXML::operator=(const CKXProjectToXML& other) = default;

void CKXProjectToXML::FindElements() {
  clipList_ = FindElement(document_, "ClipList");
  edlList_ = FindElement(document_, "EdlList");
  settings_ = FindElement(document_, kSettings);
}

// Looked for by name at every need and not kept: another object may share the document and have loaded it
// anew.
TiXmlElement* CKXProjectToXML::NeedElement(const char* name) {
  if (document_ == nullptr) return nullptr;
  if (TiXmlElement* const found = FindElement(document_, name)) return found;
  if (document_->NoChildren()) document_->LinkEndChild(new TiXmlDeclaration("1.0", "", ""));

  // In front of what hides it, or of the first element that comes behind it.
  TiXmlNode* behind = document_->FirstChild(name);
  const auto* const own = std::find_if(std::begin(kElements), std::end(kElements),
                                       [name](const char* e) { return std::strcmp(e, name) == 0; });
  for (const auto* e = own; e != std::end(kElements) && behind == nullptr; ++e) {
    behind = FindElement(document_, *e);
  }
  TiXmlNode* const made = behind != nullptr ? document_->InsertBeforeChild(behind, TiXmlElement(name))
                                            : document_->InsertEndChild(TiXmlElement(name));
  return made != nullptr ? made->ToElement() : nullptr;
}

uint32_t CKXProjectToXML::SetXMLName(const char* path) {
  path = TextOf(path);
  std::memset(xmlName_, 0, sizeof xmlName_);
  if (!FitsName(path)) return KX_PROJECT_REFUSED;
  std::strcpy(xmlName_, path);
  return 0;
}

uint32_t CKXProjectToXML::GetXMLName(char* buffer) const {
  CopyOut(buffer, xmlName_);
  return 0;
}

uint32_t CKXProjectToXML::SetClipFile(const char* path) { return SetCarriedFile(kClip, path); }

uint32_t CKXProjectToXML::GetClipFile(char* buffer) const {
  CopyOut(buffer, clipFile_);
  return 0;
}

uint32_t CKXProjectToXML::SetEDLName(const char* path) { return SetCarriedFile(kEdl, path); }

uint32_t CKXProjectToXML::GetEDLName(char* buffer) const {
  CopyOut(buffer, edlName_);
  return 0;
}

uint32_t CKXProjectToXML::SetCarriedFile(const CarriedFile& file, const char* path) {
  path = TextOf(path);
  char* const name = this->*file.name;
  std::memset(name, 0, KX_PATH_SIZE);
  if (!FitsName(path)) return KX_PROJECT_REFUSED;
  std::strcpy(name, path);
  try {
    TiXmlElement* const element = this->*file.pointer = NeedElement(file.element);
    if (element == nullptr) return KX_PROJECT_REFUSED;
    element->SetAttribute(file.attribute, path);
    TakeTextOver(*element, path);
  } catch (...) {
    return KX_PROJECT_REFUSED;
  }
  return 0;
}

uint32_t CKXProjectToXML::SetConfigDWORD(const char* key, uint32_t value) {
  char decimal[16];
  (void)std::snprintf(decimal, sizeof decimal, "%d", static_cast<int>(value));
  return SetConfigString(key, decimal);
}

uint32_t CKXProjectToXML::SetConfigString(const char* key, const char* text) {
  key = TextOf(key);
  text = TextOf(text);
  if (!qln::IsAttributeName(key) ||
      strnlen(text, size_t{KX_PROJECT_LARGEST_TEXT} + 1) > KX_PROJECT_LARGEST_TEXT) {
    return KX_PROJECT_REFUSED;
  }
  try {
    settings_ = NeedElement(kSettings);
    if (settings_ == nullptr) return KX_PROJECT_REFUSED;
    size_t others = 0;
    for (const TiXmlAttribute* a = settings_->FirstAttribute(); a != nullptr; a = a->Next()) {
      if (std::strcmp(a->Name(), key) != 0) ++others;
    }
    if (others >= KX_PROJECT_LARGEST_SETTINGS) return KX_PROJECT_REFUSED;
    settings_->SetAttribute(key, text);
  } catch (...) {
    return KX_PROJECT_REFUSED;
  }
  return 0;
}

const char* CKXProjectToXML::Setting(const char* key) const {
  const TiXmlElement* const settings = FindElement(document_, kSettings);
  return settings != nullptr ? settings->Attribute(TextOf(key)) : nullptr;
}

uint32_t CKXProjectToXML::GetConfigDWORD(const char* key) const {
  const char* const text = Setting(key);
  return text != nullptr ? DecimalValue(text) : 0;
}

uint32_t CKXProjectToXML::GetConfigString(const char* key, char* buffer) const {
  const char* const text = Setting(key);
  if (text != nullptr && buffer != nullptr) CopyCut(buffer, text);
  return 0;
}

// Where a carried file is: at its stored path, or beside the project, where it is made if need be.
void CKXProjectToXML::FindCarriedFile(const CarriedFile& file, const TiXmlElement& element) {
  char* const name = this->*file.name;
  if (kxOSFileExists(name) != 0) return;

  const PathPieces project(xmlName_);
  const PathPieces pieces(name);
  const size_t folderLength = std::strlen(project.drive) + std::strlen(project.directory);
  if (!project.whole || !pieces.whole || folderLength + pieces.NameLength() >= KX_PATH_SIZE) return;
  kxOSMakePath(name, project.drive, project.directory, pieces.name, pieces.extension);
  if (kxOSFileExists(name) != 0) return;

  const char* const text = element.Attribute(kData);
  const bool isFolder = pieces.NameLength() == 0;
  if (text == nullptr || *text == '\0' || isFolder) return;
  try {
    WriteTextOut(name, text);
  } catch (...) {  // without memory nothing is made
  }
}

uint32_t CKXProjectToXML::LoadXMLFile(const char* path) {
  std::memset(clipFile_, 0, sizeof clipFile_);
  std::memset(edlName_, 0, sizeof edlName_);
  CopyCut(xmlName_, TextOf(path));
  if (document_ == nullptr) return 0;
  bool loaded = false;
  try {
    loaded = qln::LoadProjectDocument(*document_, xmlName_);
  } catch (...) {
    loaded = false;
  }
  FindElements();
  if (clipList_ == nullptr) return loaded;

  CopyCut(clipFile_, TextOf(clipList_->Attribute(kClip.attribute)));
  FindCarriedFile(kClip, *clipList_);
  if (edlList_ != nullptr) {
    const char* const stored = TextOf(edlList_->Attribute(kEdl.attribute));
    if (FitsName(stored)) {
      std::strcpy(edlName_, stored);
      FindCarriedFile(kEdl, *edlList_);
    }
  }
  return loaded;
}

uint32_t CKXProjectToXML::SaveXMLFile() const {
  if (document_ == nullptr) return 0;
  try {
    return qln::SaveProjectDocument(*document_, xmlName_);
  } catch (...) {
    return 0;
  }
}
