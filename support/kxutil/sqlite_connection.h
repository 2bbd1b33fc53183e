// One connection to an SQLite database, in a file or in memory, for one thread at a time. A stranger's
// database is data and not a program: triggers, views and untrusted functions are off, and a call has a step
// limit.
#ifndef KXUTIL_SQLITE_CONNECTION_H
#define KXUTIL_SQLITE_CONNECTION_H

#include <sqlite3.h>

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace qln {

// No settings store is larger; a larger one is not taken into memory.
constexpr uint64_t kLargestStore = 256u << 20;

using Deadline = std::chrono::steady_clock::time_point;

class SqliteConnection {
 public:
  SqliteConnection() = default;
  ~SqliteConnection();
  SqliteConnection(const SqliteConnection&) = delete;
  SqliteConnection& operator=(const SqliteConnection&) = delete;

  // Each is false on a trouble, which code() and problem() then tell.

  // Opens a file that is there. Locks are waited for up to the deadline; without one they are not waited for.
  bool OpenFile(const std::string& path, std::optional<Deadline> deadline);
  // Opens a file without any lock, for ReadRaw and RawSize only.
  bool OpenUnlocked(const std::string& path);
  // A database in memory: empty, or a copy of the bytes of a database file.
  bool OpenImage(std::string_view bytes);

  bool Run(const char* text);
  // The first column of the first row, as a text; "" without a row.
  bool Ask(const char* text, std::string& answer);
  // The whole database as the current transaction sees it. SQLite puts zeros in the place of pages that
  // cannot be read, so that a file's is to be held against ReadAll.
  bool Serialize(std::string& bytes);

  // The bytes of the file, past all locks and caches. They go through SQLite's own handle, since closing
  // another one would drop this process's locks on the file.
  bool ReadAll(std::string& bytes);
  bool RawSize(uint64_t& size);
  bool ReadRaw(uint64_t offset, char* bytes, size_t size);

  // Whether the name that was opened leads to another file by now. A look at the name alone could not tell:
  // the number of a file that is gone is soon another one's, but not while it is open here.
  bool HasMoved();
  // Whether the file could only be opened for reading. Such a connection locks nobody out.
  bool IsReadOnly() { return sqlite3_db_readonly(database_, "main") == 1; }

  sqlite3* database() { return database_; }
  void AllowSteps() { checks_ = 0; }
  // Takes over the trouble that SQLite tells.
  bool Fail();

  int code() const { return code_; }  // a primary result code
  const std::string& problem() const { return problem_; }
  // What is in the file is wrong, as against a file that cannot be got at.
  bool damaged() const { return code_ == SQLITE_CORRUPT || code_ == SQLITE_NOTADB; }

 private:
  bool Open(const char* name, int flags);
  bool Configure();
  static int CheckSteps(void* connection);
  static int WaitForLock(void* connection, int calls);

  sqlite3* database_ = nullptr;
  int checks_ = 0;
  std::optional<Deadline> deadline_;
  int code_ = SQLITE_OK;
  std::string problem_;
};

// A prepared statement that is reset when a use of it ends.
class SqliteStatement {
 public:
  SqliteStatement() = default;
  ~SqliteStatement() { sqlite3_finalize(statement_); }
  SqliteStatement(const SqliteStatement&) = delete;
  SqliteStatement& operator=(const SqliteStatement&) = delete;

  bool Prepare(SqliteConnection& connection, const char* text);
  void Reset();

  // The bytes are used up to the next Reset and not copied.
  bool BindBytes(int index, std::string_view bytes);
  bool BindNumber(int index, int64_t number);
  // True with a row; false at the end, and on a trouble (failed() tells which).
  bool Step();
  bool failed() const { return failed_; }

  int Type(int column) { return sqlite3_column_type(statement_, column); }
  int64_t Number(int column) { return sqlite3_column_int64(statement_, column); }
  // Valid up to the next step.
  std::string_view Bytes(int column);

 private:
  SqliteConnection* connection_ = nullptr;
  sqlite3_stmt* statement_ = nullptr;
  bool failed_ = false;
};

}  // namespace qln

#endif
