// Reads single settings, and waits for nobody: where the database is locked or has a journal that may not be
// worked in, what is committed is read from a copy.
#ifndef KXUTIL_SETTINGS_READER_H
#define KXUTIL_SETTINGS_READER_H

#include <sys/types.h>

#include <memory>
#include <optional>
#include <string>

#include "kxutil/committed_copy.h"
#include "kxutil/config_store.h"
#include "kxutil/settings_table.h"

namespace qln {

enum class ReadOutcome {
  kDone,          // the value, or none if the key is absent
  kDamagedValue,  // this value is not what was written
  kDamaged,       // the store is damaged, so that nobody knows whether the key is there
  kFailed,        // it could not be read for another reason
};

// For one thread at a time. It keeps the database open from call to call, without a lock.
class SettingsReader {
 public:
  explicit SettingsReader(std::string path);

  const std::string& path() const { return path_; }
  // False in a process that came by a fork: there this object may not even be destroyed, since closing what
  // it holds would disturb the parent.
  bool belongsHere() const;

  // A store that is not there has no keys. Except for kDone, `problem()` says why.
  ReadOutcome Read(const ConfigName& name, std::optional<ConfigValue>& value);
  const std::string& problem() const { return problem_; }

 private:
  // A database, and which one it is a view of.
  struct View {
    SqliteConnection connection;
    std::optional<SettingsTable> table;
    // What a look at all of it found, and in which state of the file.
    std::optional<CheckResult> checked;
    FileState checkedState;
  };

  ReadOutcome ReadFile(const ConfigName& name, const FileState& state, std::optional<ConfigValue>& value);
  ReadOutcome ReadCopy(const ConfigName& name, std::optional<ConfigValue>& value);
  ReadOutcome Attach(View& view);
  ReadOutcome ReadView(View& view, const FileState& state, const ConfigName& name,
                       std::optional<ConfigValue>& value);
  ReadOutcome Trouble(SqliteConnection& connection);

  std::string path_;
  pid_t process_;
  std::unique_ptr<View> file_;
  FileState fileState_;
  std::unique_ptr<View> copy_;
  DatabaseState copyState_;
  std::string problem_;
};

}  // namespace qln

#endif
