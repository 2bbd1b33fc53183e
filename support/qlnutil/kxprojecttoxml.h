/// @file kxprojecttoxml.h
/// A small project document in one XML file: a clip file, an edit decision list (EDL) and named settings.
///
/// The document carries the whole text of the clip file and of the EDL. Where a loaded project's files are
/// neither at their stored paths nor beside the project file, they are made anew beside it.
///
/// The file begins with a declaration of version "1.0"; then stand, without a root around them, `ClipList`
/// (attributes "FileName" and "Data"), `EdlList` ("EdlName" and "Data") and `Settings` (an attribute for each
/// key). Texts of any bytes survive a save and a load.
///
/// A host makes the objects, so their size and the order of their members are part of the surface. An object
/// belongs to one thread. All texts are NUL-terminated; a null text counts as an empty one. Unless something
/// else is said, an operation returns 0.
#ifndef QLNUTIL_KXPROJECTTOXML_H
#define QLNUTIL_KXPROJECTTOXML_H

#include <stddef.h>
#include <stdint.h>

#include "kxutil/kxutil.h"
#include "qlnutil/qlnapi.h"

/// What a setter returns for a path, key or text that it refuses.
#define KX_PROJECT_REFUSED 0xFFFFFFFFu

/// The most settings that one document holds.
#define KX_PROJECT_LARGEST_SETTINGS 10000

/// The most bytes of one text, a "Data" included.
#define KX_PROJECT_LARGEST_TEXT 0x10000000u

class TiXmlDocument;
class TiXmlElement;

/// A project as an XML document: settings by name, and the text of one clip file and one EDL.
class CKXProjectToXML {
 public:
  /// An empty project: the three elements without attributes, no names. It can be saved at once. Without
  /// memory the object holds no document: setters refuse, getters find nothing, load and save fail.
  QLN_API CKXProjectToXML();

  /// Frees the document.
  QLN_API ~CKXProjectToXML();

  /// Copies the object's bytes as they are: both objects then share one document, in which each sees what the
  /// other sets and loads. A host must not let both be destroyed, and the document that this object had
  /// before is not freed. Making an object from another does the same.
  /// @{
  QLN_API CKXProjectToXML& operator=(const CKXProjectToXML& other);
  CKXProjectToXML(const CKXProjectToXML&) = default;
  /// @}

  /// Sets the path of the project file.
  /// @return 0; KX_PROJECT_REFUSED for a path of 260 bytes or more, the name being empty then.
  QLN_API uint32_t SetXMLName(const char* path);

  /// @param[out] buffer 260 bytes; null is left alone.
  QLN_API uint32_t GetXMLName(char* buffer) const;

  /// Names the clip file ("FileName") and takes its text over ("Data"), up to its first zero byte. A file
  /// that is missing, empty, cannot be read or is larger than KX_PROJECT_LARGEST_TEXT leaves "Data" as it
  /// was. Of the size only the low 32 bits count.
  /// @return 0; KX_PROJECT_REFUSED for a path of 260 bytes or more (the clip file is empty then, the document
  /// stays as it was) and without memory.
  QLN_API uint32_t SetClipFile(const char* path);

  /// @param[out] buffer 260 bytes: behind a load, the path where the clip file was looked for last; null is
  /// left alone.
  QLN_API uint32_t GetClipFile(char* buffer) const;

  /// As SetClipFile, for the EDL ("EdlName").
  QLN_API uint32_t SetEDLName(const char* path);

  /// As GetClipFile, for the EDL.
  QLN_API uint32_t GetEDLName(char* buffer) const;

  /// Sets a setting to a number, written as the decimal of the signed value: 0xFFFFFFFF as "-1".
  /// @param value the number.
  /// @param key an XML name: letters, digits, '_', '-', '.', ':' and bytes above 126, not beginning with a
  /// digit, '-', '.' or ':', nor with a byte order mark.
  /// @return 0; KX_PROJECT_REFUSED for any other key, for a new one beyond KX_PROJECT_LARGEST_SETTINGS, and
  /// without memory.
  QLN_API uint32_t SetConfigDWORD(const char* key, uint32_t value);

  /// @return the number that a setting's text begins with; blanks in front of it are skipped. Decimals
  /// from -2^31 to 2^32 - 1 count modulo 2^32, those outside as the nearest of these; a text without a
  /// number, and a setting that is not there, give 0.
  QLN_API uint32_t GetConfigDWORD(const char* key) const;

  /// Sets a setting to a text of at most KX_PROJECT_LARGEST_TEXT bytes. @return as SetConfigDWORD.
  QLN_API uint32_t SetConfigString(const char* key, const char* text);

  /// @param key the setting.
  /// @param[out] buffer 260 bytes: the first 259 characters of the setting and a terminator. It stays as it
  /// was when the setting is not there; null is left alone.
  QLN_API uint32_t GetConfigString(const char* key, char* buffer) const;

  /// Loads a project, whose file also becomes the XML name, cut at 259 characters. Nothing of the earlier
  /// document stays, whatever the result; a file that breaks off keeps what stands in front of the break.
  ///
  /// The clip file and, in a document that has `ClipList`, the EDL take the stored paths, "FileName" cut at
  /// 259 characters and an "EdlName" of 260 bytes or more being refused (empty). A file that is not at its
  /// stored path, or has none, is looked for under its own name in the project's folder, and if it is not
  /// there either, it is made there from "Data", unless that is missing or empty. Both '/' and '\' part
  /// folders. A file that exists is never written, nothing is written elsewhere, and a failure to write goes
  /// unsaid; the file is then not there at all, since it is written under another name (".project-", process
  /// and number) and gets its own when it is whole. A path that would become longer than 259 characters is
  /// not changed and nothing is written.
  ///
  /// Of the document, at most 1000 elements in each other and 10,000 attributes of one element are read, and
  /// no more than takes a time that grows with its size: nodes times their depth may come to 1,000,000, and
  /// attributes times those in front of them in their element to 50,000,000, with 8 more for each byte.
  /// @return non-zero when the document was read without an error, 0 when it was not.
  QLN_API uint32_t LoadXMLFile(const char* path);

  /// Saves the document under the XML name. The file is replaced in one step, so a failure leaves the old
  /// one; over symbolic links the file behind them is replaced, or made. It is on the disk, with its name,
  /// when the call returns. What killed processes left in its folder (".project-", process and number) is
  /// removed.
  ///
  /// The new file has the owner, group, permissions, access control list and "user." attributes of the old
  /// one. Where the caller may not give it the owner, it still gets the group; where it may not give the
  /// group either, the group's rights are those of all others, and the list does not come along. Security
  /// labels and capabilities are made anew by the system.
  /// @return non-zero on success, 0 on failure.
  QLN_API uint32_t SaveXMLFile() const;

 private:
  // One of the two files that a project names and carries.
  struct CarriedFile {
    const char* element;
    const char* attribute;
    TiXmlElement* CKXProjectToXML::*pointer;
    char (CKXProjectToXML::*name)[KX_PATH_SIZE];
  };
  static const CarriedFile kClip;
  static const CarriedFile kEdl;

  TiXmlElement* NeedElement(const char* name);
  void FindElements();
  uint32_t SetCarriedFile(const CarriedFile& file, const char* path);
  void FindCarriedFile(const CarriedFile& file, const TiXmlElement& element);
  const char* Setting(const char* key) const;

  char xmlName_[KX_PATH_SIZE];
  char clipFile_[KX_PATH_SIZE];
  char edlName_[KX_PATH_SIZE];
  TiXmlDocument* document_;  // owned
  TiXmlElement* clipList_;   // in the document; null until there is one
  TiXmlElement* edlList_;
  TiXmlElement* settings_;
};

static_assert(sizeof(CKXProjectToXML) == 816, "hosts make the objects");

#endif
