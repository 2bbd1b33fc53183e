// Settings in an SQLite table, one row a key. Every change is a transaction of its own with a rollback
// journal, so that a reader needs no right to write and a killed process leaves the old value or the new one.

#include "kxutil/sqlite_connection.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace qln {
namespace {

// Names and texts are blobs, since their bytes need not be UTF-8; numbers are integers.
constexpr char kMakeTable[] =
    "CREATE TABLE IF NOT EXISTS settings (section BLOB NOT NULL, key BLOB NOT NULL, value NOT NULL, "
    "PRIMARY KEY (section, key)) WITHOUT ROWID";
constexpr char kSelect[] = "SELECT value FROM settings WHERE section = ?1 AND key = ?2";
// An equal value is left alone: nothing is written for it.
constexpr char kUpsert[] =
    "INSERT INTO settings (section, key, value) VALUES (?1, ?2, ?3) ON CONFLICT (section, key) DO UPDATE SET "
    "value = excluded.value WHERE value IS NOT excluded.value";
constexpr char kRemove[] = "DELETE FROM settings WHERE section = ?1 AND key = ?2";

constexpr int kBusyMilliseconds = 30000;

// A database from a stranger may hold more than a table; no call runs longer than this.
constexpr int kStepsPerCheck = 10000;
constexpr int kMostChecks = 2000;

int CheckSteps(void* checks) { return ++*static_cast<int*>(checks) > kMostChecks; }

// Makes the folders above a file, for their owner alone.
void MakeFoldersOf(const std::string& path) {
  for (size_t slash = path.find('/', 1); slash != std::string::npos; slash = path.find('/', slash + 1)) {
    mkdir(path.substr(0, slash).c_str(), 0700);
  }
}

// A file that is there is not opened: closing it again would drop the locks of this process's connections.
void MakeFile(const std::string& path) {
  struct stat status;
  if (stat(path.c_str(), &status) == 0) return;
  MakeFoldersOf(path);
  const int descriptor = open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
  if (descriptor >= 0) close(descriptor);
}

class ResetAtEnd {
 public:
  explicit ResetAtEnd(sqlite3_stmt* statement) : statement_(statement) {}
  ~ResetAtEnd() {
    sqlite3_reset(statement_);
    sqlite3_clear_bindings(statement_);
  }

 private:
  sqlite3_stmt* statement_;
};

}  // namespace

std::unique_ptr<SqliteConnection> SqliteConnection::Open(const std::string& path, std::string& problem) {
  if (path.empty()) {
    problem = "the user has no home folder";
    return nullptr;
  }
  MakeFile(path);
  std::unique_ptr<SqliteConnection> connection(new SqliteConnection);
  connection->path_ = path;
  connection->process_ = getpid();
  const int flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX | SQLITE_OPEN_PRIVATECACHE;
  if (sqlite3_open_v2(path.c_str(), &connection->database_, flags, nullptr) != SQLITE_OK) {
    connection->Fail();
  } else if (connection->Configure()) {
    struct stat status;
    if (stat(path.c_str(), &status) == 0) {
      connection->device_ = status.st_dev;
      connection->inode_ = status.st_ino;
    }
    return connection;
  }
  problem = connection->problem_;
  return nullptr;
}

SqliteConnection::~SqliteConnection() {
  // A connection that came through a fork belongs to the parent, and closing it would disturb the parent's.
  if (process_ != getpid()) return;
  sqlite3_finalize(select_);
  sqlite3_finalize(upsert_);
  sqlite3_finalize(remove_);
  sqlite3_close(database_);
}

bool SqliteConnection::IsFor(const std::string& path) const {
  struct stat status;
  return process_ == getpid() && path == path_ && stat(path.c_str(), &status) == 0 &&
         status.st_dev == device_ && status.st_ino == inode_;
}

bool SqliteConnection::Configure() {
  sqlite3_extended_result_codes(database_, 1);
  sqlite3_busy_timeout(database_, kBusyMilliseconds);
  sqlite3_progress_handler(database_, kStepsPerCheck, CheckSteps, &steps_);
  sqlite3_db_config(database_, SQLITE_DBCONFIG_DEFENSIVE, 1, nullptr);
  sqlite3_db_config(database_, SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0, nullptr);
  sqlite3_db_config(database_, SQLITE_DBCONFIG_ENABLE_TRIGGER, 0, nullptr);
  sqlite3_db_config(database_, SQLITE_DBCONFIG_ENABLE_VIEW, 0, nullptr);
  if (!Run("PRAGMA synchronous = EXTRA") || !Run("PRAGMA temp_store = MEMORY")) return false;
  if (!Prepare(kSelect, &select_)) {
    // A new file, or one that another process is just making.
    if (sqlite3_errcode(database_) != SQLITE_ERROR || !MakeTable() || !Prepare(kSelect, &select_))
      return false;
  }
  return Prepare(kUpsert, &upsert_) && Prepare(kRemove, &remove_);
}

bool SqliteConnection::Prepare(const char* text, sqlite3_stmt** statement) {
  steps_ = 0;
  return sqlite3_prepare_v3(database_, text, -1, SQLITE_PREPARE_PERSISTENT, statement, nullptr) ==
             SQLITE_OK ||
         Fail();
}

bool SqliteConnection::MakeTable() {
  if (!Run("BEGIN IMMEDIATE")) return false;
  if (Run(kMakeTable) && Run("COMMIT")) return true;
  if (sqlite3_get_autocommit(database_) == 0) sqlite3_exec(database_, "ROLLBACK", nullptr, nullptr, nullptr);
  return false;
}

bool SqliteConnection::Run(const char* text) {
  steps_ = 0;
  return sqlite3_exec(database_, text, nullptr, nullptr, nullptr) == SQLITE_OK || Fail();
}

bool SqliteConnection::Bind(sqlite3_stmt* statement, const ConfigName& name) {
  // A null pointer would bind NULL, which an empty std::string never gives.
  return (sqlite3_bind_blob64(statement, 1, name.section.data(), name.section.size(), SQLITE_STATIC) ==
              SQLITE_OK &&
          sqlite3_bind_blob64(statement, 2, name.key.data(), name.key.size(), SQLITE_STATIC) == SQLITE_OK) ||
         Fail();
}

bool SqliteConnection::Read(const ConfigName& name, std::optional<ConfigValue>& value) {
  const ResetAtEnd reset(select_);
  if (!Bind(select_, name)) return false;
  steps_ = 0;
  const int result = sqlite3_step(select_);
  if (result == SQLITE_DONE) return true;
  if (result != SQLITE_ROW) return Fail();
  switch (sqlite3_column_type(select_, 0)) {
    case SQLITE_INTEGER: {
      const sqlite3_int64 number = sqlite3_column_int64(select_, 0);
      if (number >= 0 && number <= 0xFFFFFFFF) value = static_cast<uint32_t>(number);
      return true;
    }
    case SQLITE_BLOB:
    case SQLITE_TEXT: {
      const void* const bytes = sqlite3_column_blob(select_, 0);
      const size_t size = static_cast<size_t>(sqlite3_column_bytes(select_, 0));
      if (bytes == nullptr && size != 0) return Fail();
      const char* const text = static_cast<const char*>(bytes);
      value = size != 0 ? std::string(text, strnlen(text, size)) : std::string();
      return true;
    }
    default:
      return true;
  }
}

bool SqliteConnection::Write(const ConfigName& name, const ConfigValue& value) {
  const ResetAtEnd reset(upsert_);
  if (!Bind(upsert_, name)) return false;
  const std::string* const text = std::get_if<std::string>(&value);
  const int bound = text != nullptr
                        ? sqlite3_bind_blob64(upsert_, 3, text->data(), text->size(), SQLITE_STATIC)
                        : sqlite3_bind_int64(upsert_, 3, std::get<uint32_t>(value));
  return bound == SQLITE_OK ? Change(upsert_) : Fail();
}

bool SqliteConnection::Remove(const ConfigName& name) {
  // Most removals find nothing; that needs no lock.
  {
    const ResetAtEnd reset(select_);
    if (!Bind(select_, name)) return false;
    steps_ = 0;
    const int result = sqlite3_step(select_);
    if (result == SQLITE_DONE) return true;
    if (result != SQLITE_ROW) return Fail();
  }
  const ResetAtEnd reset(remove_);
  return Bind(remove_, name) && Change(remove_);
}

bool SqliteConnection::Change(sqlite3_stmt* statement) {
  if (!Run("BEGIN IMMEDIATE")) return false;
  steps_ = 0;
  if ((sqlite3_step(statement) == SQLITE_DONE || Fail()) && sqlite3_reset(statement) == SQLITE_OK &&
      Run("COMMIT")) {
    return true;
  }
  sqlite3_reset(statement);
  if (sqlite3_get_autocommit(database_) == 0) sqlite3_exec(database_, "ROLLBACK", nullptr, nullptr, nullptr);
  return false;
}

bool SqliteConnection::Fail() {
  problem_ = database_ != nullptr ? sqlite3_errmsg(database_) : "no memory";
  return false;
}

}  // namespace qln
