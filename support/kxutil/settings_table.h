// The settings in a database: one row a key, each with a checksum over its names, its type and its value.
#ifndef KXUTIL_SETTINGS_TABLE_H
#define KXUTIL_SETTINGS_TABLE_H

#include <map>
#include <optional>
#include <string>

#include "kxutil/config_store.h"
#include "kxutil/sqlite_connection.h"

namespace qln {

// What is to become of each key; none: it goes.
using ConfigChanges = std::map<ConfigName, std::optional<ConfigValue>>;

enum class TableState {
  kReady,    // as it should be, or without the table: no settings yet
  kDamaged,  // what is there is damaged beyond a value
  kForeign,  // something else
  kFailed,   // it could not be read for another reason
};

enum class RowState {
  kFound,
  kAbsent,
  kDamaged,  // there is a row, and it does not hold what was written
  kFailed,   // the connection tells why
};

enum class CheckResult {
  kSound,
  kDamagedValues,  // whole as a database, but not each row is what was written
  kDamaged,
  kFailed,
};

class SettingsTable {
 public:
  // The connection is used as long as the table lives.
  explicit SettingsTable(SqliteConnection& connection) : connection_(connection) {}

  // Finds out what stands in the database; to be called first.
  TableState Attach();
  // Why Attach did not find settings.
  const std::string& problem() const { return problem_; }

  // The value of a key, which is left alone unless it is found.
  RowState Read(const ConfigName& name, std::optional<ConfigValue>& value);

  // Goes through all of the database: pages, order of rows, checksums. Linear in its size.
  CheckResult Check();

  // For a database in memory: makes the table or brings it to this form (an earlier one had no checksums),
  // and changes keys. False on a trouble, which the connection tells.
  bool Make();
  bool Apply(const ConfigChanges& changes);

  // Whether each changed key reads as it was changed.
  bool Holds(const ConfigChanges& changes);

 private:
  enum class Form { kNone, kWithoutChecksums, kWithChecksums };
  bool AddChecksums();
  bool Write(const ConfigName& name, const ConfigValue& value);
  bool Remove(const ConfigName& name);

  SqliteConnection& connection_;
  Form form_ = Form::kNone;
  SqliteStatement select_;
  SqliteStatement upsert_;
  SqliteStatement remove_;
  std::string problem_;
};

}  // namespace qln

#endif
