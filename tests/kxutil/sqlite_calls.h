// SQLite's calls and the system's clock in the hands of a test: this program has them, and goes on to the
// real ones unless a test wants a failure.
#ifndef TESTS_KXUTIL_SQLITE_CALLS_H
#define TESTS_KXUTIL_SQLITE_CALLS_H

#include <cstdint>

namespace qln::test {

// While one lives, the `at`-th call that may fail does so with that code (1 is the first one). What SQLite
// says of the last call and of the system is told accordingly.
class SqliteFault {
 public:
  SqliteFault(int code, int64_t at, int systemError = 0);
  ~SqliteFault();
  SqliteFault(const SqliteFault&) = delete;
  SqliteFault& operator=(const SqliteFault&) = delete;

  static bool fired();
};

// For stand-ins elsewhere: the code that this call fails with, or SQLITE_OK.
int SqliteCallFails();

// While one lives, no connection tells a usable file.
class NoSqliteFile {
 public:
  // With a file that has no calls, or without one.
  explicit NoSqliteFile(bool hasFile);
  ~NoSqliteFile();
  NoSqliteFile(const NoSqliteFile&) = delete;
  NoSqliteFile& operator=(const NoSqliteFile&) = delete;
};

// While one lives, the steady clock is so many seconds on at each look.
class QuickClock {
 public:
  explicit QuickClock(int64_t seconds);
  ~QuickClock();
  QuickClock(const QuickClock&) = delete;
  QuickClock& operator=(const QuickClock&) = delete;
};

}  // namespace qln::test

#endif
