// SQLite behind a thin face: open, run, copy, and the trouble told as a code and a text.

#include "kxutil/sqlite_connection.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace qln {
namespace {

// No call runs longer than so many steps of SQLite's machine.
constexpr int kStepsPerCheck = 10000;
constexpr int kMostChecks = 2000;

constexpr int kLongestValue = 64 << 20;

// A path as a file URI: what has a meaning in a URI is written as %XX.
std::string UriOf(const std::string& path) {
  constexpr char kDigits[] = "0123456789ABCDEF";
  std::string uri = "file:";
  for (const char c : path) {
    const bool plain = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
                       std::strchr("/-._~", c) != nullptr;
    if (plain) {
      uri.push_back(c);
    } else {
      uri.push_back('%');
      uri.push_back(kDigits[static_cast<unsigned char>(c) >> 4]);
      uri.push_back(kDigits[static_cast<unsigned char>(c) & 15]);
    }
  }
  return uri + "?immutable=1";
}

}  // namespace

SqliteConnection::~SqliteConnection() { sqlite3_close(database_); }

bool SqliteConnection::OpenFile(const std::string& path, std::optional<Deadline> deadline) {
  deadline_ = deadline;
  if (!Open(path.c_str(), SQLITE_OPEN_READWRITE) || !Configure()) return false;
  if (deadline) sqlite3_busy_handler(database_, WaitForLock, this);
  return true;
}

bool SqliteConnection::OpenUnlocked(const std::string& path) {
  return Open(UriOf(path).c_str(), SQLITE_OPEN_READONLY | SQLITE_OPEN_URI);
}

bool SqliteConnection::OpenImage(std::string_view bytes) {
  if (!Open(":memory:", SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE) || !Configure()) return false;
  if (bytes.empty()) return true;
  unsigned char* const copy = static_cast<unsigned char*>(sqlite3_malloc64(bytes.size()));
  if (copy == nullptr) {
    code_ = SQLITE_NOMEM;
    problem_ = "out of memory";
    return false;
  }
  std::memcpy(copy, bytes.data(), bytes.size());
  const sqlite3_int64 size = static_cast<sqlite3_int64>(bytes.size());
  // The copy is SQLite's from here on, also on a failure.
  if (sqlite3_deserialize(database_, "main", copy, size, size,
                          SQLITE_DESERIALIZE_FREEONCLOSE | SQLITE_DESERIALIZE_RESIZEABLE) != SQLITE_OK) {
    return Fail();
  }
  sqlite3_int64 limit = 2 * static_cast<sqlite3_int64>(kLargestStore);
  sqlite3_file_control(database_, "main", SQLITE_FCNTL_SIZE_LIMIT, &limit);
  return true;
}

bool SqliteConnection::Open(const char* name, int flags) {
  flags |= SQLITE_OPEN_NOMUTEX | SQLITE_OPEN_PRIVATECACHE;
  if (sqlite3_open_v2(name, &database_, flags, nullptr) == SQLITE_OK) return true;
  return Fail();
}

bool SqliteConnection::Configure() {
  sqlite3_progress_handler(database_, kStepsPerCheck, CheckSteps, this);
  sqlite3_limit(database_, SQLITE_LIMIT_LENGTH, kLongestValue);
  sqlite3_db_config(database_, SQLITE_DBCONFIG_DEFENSIVE, 1, nullptr);
  sqlite3_db_config(database_, SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0, nullptr);
  sqlite3_db_config(database_, SQLITE_DBCONFIG_ENABLE_TRIGGER, 0, nullptr);
  sqlite3_db_config(database_, SQLITE_DBCONFIG_ENABLE_VIEW, 0, nullptr);
  // The constraints of a stranger's tables are a program too.
  return Run("PRAGMA temp_store = MEMORY") && Run("PRAGMA ignore_check_constraints = ON");
}

int SqliteConnection::CheckSteps(void* connection) {
  return ++static_cast<SqliteConnection*>(connection)->checks_ > kMostChecks;
}

int SqliteConnection::WaitForLock(void* connection, int calls) {
  if (std::chrono::steady_clock::now() >= *static_cast<SqliteConnection*>(connection)->deadline_) return 0;
  // Short waits that differ from process to process, so that none is left behind by the others.
  usleep(static_cast<useconds_t>(500 + (calls * 37 + getpid()) % 16 * 300));
  return 1;
}

bool SqliteConnection::Run(const char* text) {
  AllowSteps();
  if (sqlite3_exec(database_, text, nullptr, nullptr, nullptr) == SQLITE_OK) return true;
  return Fail();
}

bool SqliteConnection::Ask(const char* text, std::string& answer) {
  SqliteStatement statement;
  if (!statement.Prepare(*this, text)) return false;
  answer = statement.Step() ? std::string(statement.Bytes(0)) : "";
  return !statement.failed();
}

bool SqliteConnection::Serialize(std::string& bytes) {
  AllowSteps();
  sqlite3_int64 size = 0;
  unsigned char* const copy = sqlite3_serialize(database_, "main", &size, 0);
  if (copy == nullptr) {
    // An empty database has no bytes, and so no copy.
    std::string pages;
    if (!Ask("PRAGMA page_count", pages)) return false;
    if (pages != "0") return Fail();
    bytes.clear();
    return true;
  }
  bytes.assign(reinterpret_cast<const char*>(copy), static_cast<size_t>(size));
  sqlite3_free(copy);
  return true;
}

bool SqliteConnection::ReadAll(std::string& bytes) {
  uint64_t size = 0;
  if (!RawSize(size)) return false;
  bytes.resize(static_cast<size_t>(size));
  return size == 0 || ReadRaw(0, bytes.data(), bytes.size());
}

bool SqliteConnection::RawSize(uint64_t& size) {
  sqlite3_file* file = nullptr;
  sqlite3_int64 bytes = 0;
  if (sqlite3_file_control(database_, "main", SQLITE_FCNTL_FILE_POINTER, &file) != SQLITE_OK ||
      file == nullptr || file->pMethods == nullptr || file->pMethods->xFileSize(file, &bytes) != SQLITE_OK) {
    code_ = SQLITE_IOERR;
    problem_ = "disk I/O error";
    return false;
  }
  size = static_cast<uint64_t>(bytes);
  return true;
}

bool SqliteConnection::ReadRaw(uint64_t offset, char* bytes, size_t size) {
  sqlite3_file* file = nullptr;
  if (sqlite3_file_control(database_, "main", SQLITE_FCNTL_FILE_POINTER, &file) != SQLITE_OK ||
      file == nullptr || file->pMethods == nullptr ||
      file->pMethods->xRead(file, bytes, static_cast<int>(size), static_cast<sqlite3_int64>(offset)) !=
          SQLITE_OK) {
    code_ = SQLITE_IOERR;
    problem_ = "disk I/O error";
    return false;
  }
  return true;
}

bool SqliteConnection::HasMoved() {
  int moved = 1;
  return sqlite3_file_control(database_, "main", SQLITE_FCNTL_HAS_MOVED, &moved) != SQLITE_OK || moved != 0;
}

bool SqliteConnection::Fail() {
  code_ = database_ != nullptr ? sqlite3_errcode(database_) & 0xFF : SQLITE_NOMEM;
  if (code_ == SQLITE_OK) code_ = SQLITE_ERROR;
  problem_ = database_ != nullptr ? sqlite3_errmsg(database_) : "out of memory";
  // SQLite takes a disk that does not read for a database that is damaged. The file may be whole, and what is
  // damaged is set aside.
  int reason = 0;
  if (damaged() && sqlite3_file_control(database_, "main", SQLITE_FCNTL_LAST_ERRNO, &reason) == SQLITE_OK &&
      (reason == EIO || reason == ERANGE || reason == ENXIO)) {
    code_ = SQLITE_IOERR;
    problem_ = "disk I/O error";
  }
  return false;
}

bool SqliteStatement::Prepare(SqliteConnection& connection, const char* text) {
  sqlite3_finalize(statement_);
  statement_ = nullptr;
  connection_ = &connection;
  connection.AllowSteps();
  failed_ = sqlite3_prepare_v3(connection.database(), text, -1, SQLITE_PREPARE_PERSISTENT, &statement_,
                               nullptr) != SQLITE_OK;
  if (!failed_) return true;
  return connection.Fail();
}

void SqliteStatement::Reset() {
  failed_ = false;
  if (statement_ == nullptr) return;
  sqlite3_reset(statement_);
  sqlite3_clear_bindings(statement_);
}

bool SqliteStatement::BindBytes(int index, std::string_view bytes) {
  // A null pointer would bind NULL and not an empty blob.
  const char* const data = bytes.data() != nullptr ? bytes.data() : "";
  if (sqlite3_bind_blob64(statement_, index, data, bytes.size(), SQLITE_STATIC) == SQLITE_OK) return true;
  return connection_->Fail();
}

bool SqliteStatement::BindNumber(int index, int64_t number) {
  if (sqlite3_bind_int64(statement_, index, number) == SQLITE_OK) return true;
  return connection_->Fail();
}

bool SqliteStatement::Step() {
  connection_->AllowSteps();
  const int result = sqlite3_step(statement_);
  if (result == SQLITE_ROW) return true;
  failed_ = result != SQLITE_DONE;
  if (failed_) connection_->Fail();
  return false;
}

std::string_view SqliteStatement::Bytes(int column) {
  const void* const bytes = sqlite3_column_blob(statement_, column);
  const int size = sqlite3_column_bytes(statement_, column);
  // No memory for a value gives the same null pointer as a value that is empty.
  if (bytes == nullptr && sqlite3_errcode(connection_->database()) == SQLITE_NOMEM) {
    failed_ = true;
    connection_->Fail();
  }
  if (bytes == nullptr || size <= 0) return {};
  return {static_cast<const char*>(bytes), static_cast<size_t>(size)};
}

}  // namespace qln
