/// @file clip_info.h
/// Stored clip information (qlnutil/qlninfo.h) by tag name: single fields of the default store or of a user
/// file read and changed, and all of them as JSON.
///
/// A store is for one thread at a time; several may be open side by side.
#ifndef QLNMEDIA_CLIP_INFO_H
#define QLNMEDIA_CLIP_INFO_H

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "qlnmedia/api.h"
#include "qlnmedia/error.h"

namespace qlnmedia {

/// One stored field of the record.
struct ClipInfoField {
  const char* name = "";  ///< its key in the store, "Title"; static storage
  bool isNumber = false;  ///< a number, else a text
};

/// A number, or a text in the host's single-byte character set or in UTF-8.
using ClipInfoValue = std::variant<uint32_t, std::string>;

/// A field that holds a value.
struct ClipInfoEntry {
  ClipInfoField field;  ///< whose value it is
  ClipInfoValue value;  ///< what it holds
};

/// A field that is to get a value, or, without one, to be removed.
struct ClipInfoChange {
  ClipInfoField field;                 ///< what changes
  std::optional<ClipInfoValue> value;  ///< what it gets; nothing removes it
};

/// All stored fields, in the record's order: texts first, then numbers.
QLNMEDIA_API std::vector<ClipInfoField> ClipInfoFields();

/// The field of that name, upper and lower case alike.
/// @throws Error for a name that no stored field has
QLNMEDIA_API ClipInfoField FindClipInfoField(const std::string& name);

/// The value that a text stands for: the text itself, or a number (decimal or 0x).
/// @throws Error for a text that is no number from 0 to 4294967294 where the field is one
QLNMEDIA_API ClipInfoValue ParseClipInfoValue(const ClipInfoField& field, const std::string& text);

/// A store that is open while it lives.
class QLNMEDIA_API ClipInfoStore {
 public:
  /// @param file       a user file; empty for the default store
  /// @param mustExist  a file that is missing is a failure; else it is made by Save
  /// @throws Error
  explicit ClipInfoStore(const std::string& file, bool mustExist);
  /// Leaves changes of a user file that were not saved.
  ~ClipInfoStore();
  ClipInfoStore(const ClipInfoStore&) = delete;
  ClipInfoStore& operator=(const ClipInfoStore&) = delete;

  /// All fields that hold a value, in the record's order.
  std::vector<ClipInfoEntry> ReadAll() const;
  /// Nothing where the field holds no value.
  std::optional<ClipInfoValue> Read(const ClipInfoField& field) const;

  /// Makes one change and touches no other key: in the default store at once, in a user file with Save.
  /// @throws Error when the store refuses
  void Write(const ClipInfoChange& change);
  /// Makes all of them in one step, in the order given: where that fails, the default store has none of them.
  /// @throws Error when the store refuses
  void Write(const std::vector<ClipInfoChange>& changes);
  /// Puts the changes of a user file into place; the store is of no use afterwards. Nothing for the default
  /// store.
  /// @throws Error when that fails
  void Save();

  /// How messages name it.
  std::string name() const;

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

/// The entries as one JSON object, laid out with two blanks a level: numbers, texts, and {"hex": ...} for a
/// text that is no UTF-8.
QLNMEDIA_API std::string ClipInfoJson(const std::vector<ClipInfoEntry>& entries);

/// The changes that such an object asks for; null removes.
/// @param text the object
/// @param where what the text of a failure begins with
/// @throws Error for anything else
QLNMEDIA_API std::vector<ClipInfoChange> ParseClipInfoJson(const std::string& text, const std::string& where);

/// Writes that object and a line feed to a file, which is there when it is whole; a pipe or device takes the
/// bytes as they come.
/// @throws Error where it cannot be written; what was in a file then stays
QLNMEDIA_API void WriteClipInfoFile(const std::vector<ClipInfoEntry>& entries, const std::string& path);

}  // namespace qlnmedia

#endif
