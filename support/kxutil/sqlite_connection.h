// One connection to a settings database, for one thread at a time.
#ifndef KXUTIL_SQLITE_CONNECTION_H
#define KXUTIL_SQLITE_CONNECTION_H

#include <sqlite3.h>
#include <sys/types.h>

#include <memory>
#include <optional>
#include <string>

#include "kxutil/config_store.h"

namespace qln {

class SqliteConnection {
 public:
  // Opens the database, which is made with its folder if it is not there (mode 0600). Null with a text in
  // `problem` if that cannot be done, or if the file is something else.
  static std::unique_ptr<SqliteConnection> Open(const std::string& path, std::string& problem);
  ~SqliteConnection();
  SqliteConnection(const SqliteConnection&) = delete;
  SqliteConnection& operator=(const SqliteConnection&) = delete;

  // Whether it still leads to the file of that name, and this process opened it.
  bool IsFor(const std::string& path) const;

  // Each is false on a trouble, with a text in problem(). An absent key is none.
  bool Read(const ConfigName& name, std::optional<ConfigValue>& value);
  bool Write(const ConfigName& name, const ConfigValue& value);
  bool Remove(const ConfigName& name);
  const std::string& problem() const { return problem_; }

 private:
  SqliteConnection() = default;
  bool Configure();
  bool Prepare(const char* text, sqlite3_stmt** statement);
  bool MakeTable();
  bool Run(const char* text);
  bool Bind(sqlite3_stmt* statement, const ConfigName& name);
  bool Change(sqlite3_stmt* statement);
  bool Fail();

  sqlite3* database_ = nullptr;
  sqlite3_stmt* select_ = nullptr;
  sqlite3_stmt* upsert_ = nullptr;
  sqlite3_stmt* remove_ = nullptr;
  int steps_ = 0;
  pid_t process_ = 0;
  std::string path_;
  dev_t device_ = 0;
  ino_t inode_ = 0;
  std::string problem_;
};

}  // namespace qln

#endif
