// The calls in front of SQLite's and the system's own.

#include "kxutil/sqlite_calls.h"

#include <dlfcn.h>
#include <sqlite3.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <utility>

namespace qln::test {
namespace {

int code = SQLITE_OK;
int64_t left = 0;  // calls up to the one that fails; other threads make none meanwhile
int systemReason = 0;
bool hasFired = false;
// Of each thread: other tests have many that call at once.
thread_local int told = SQLITE_OK;        // of the last call
thread_local bool isInside = false;       // a call that SQLite makes of its own
thread_local bool endsStatement = false;  // the next step fails as well
bool hidesFile = false;
sqlite3_file noCalls = {nullptr};
sqlite3_file* shownFile = nullptr;
// How far the steady clock jumps at each look, and has jumped; it never goes back.
std::atomic<int64_t> secondsALook = 0, secondsOn = 0;

int Fails() {
  if (isInside) return SQLITE_OK;
  told = SQLITE_OK;
  if (left == 0 || --left != 0) return SQLITE_OK;
  hasFired = true;
  told = code;
  return code;
}

template <class Function>
Function* Next(const char* name, Function*) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

}  // namespace

SqliteFault::SqliteFault(int with, int64_t at, int systemError) {
  code = with;
  left = at;
  systemReason = systemError;
  hasFired = false;
}
SqliteFault::~SqliteFault() {
  left = 0;
  endsStatement = false;
  told = SQLITE_OK;
  systemReason = 0;
}
bool SqliteFault::fired() { return hasFired; }
int SqliteCallFails() { return Fails(); }

NoSqliteFile::NoSqliteFile(bool hasFile) {
  hidesFile = true;
  shownFile = hasFile ? &noCalls : nullptr;
}
NoSqliteFile::~NoSqliteFile() { hidesFile = false; }

QuickClock::QuickClock(int64_t seconds) { secondsALook = seconds; }
QuickClock::~QuickClock() { secondsALook = 0; }

}  // namespace qln::test

using namespace qln::test;

#define QLN_NEXT(name) static auto* const real = Next(#name, &name)

#define QLN_IN_FRONT extern "C" __attribute__((visibility("default")))

QLN_IN_FRONT int sqlite3_open_v2(const char* name, sqlite3** database, int flags, const char* layer) {
  QLN_NEXT(sqlite3_open_v2);
  const int result = real(name, database, flags, layer);
  const int failure = Fails();
  return failure != SQLITE_OK ? failure : result;  // a connection is there either way
}

QLN_IN_FRONT int sqlite3_exec(sqlite3* database, const char* text, int (*take)(void*, int, char**, char**),
                              void* context, char** message) {
  QLN_NEXT(sqlite3_exec);
  const int failure = Fails();
  if (failure != SQLITE_OK) return failure;
  const bool wasInside = std::exchange(isInside, true);
  const int result = real(database, text, take, context, message);
  isInside = wasInside;
  return result;
}

QLN_IN_FRONT int sqlite3_prepare_v3(sqlite3* database, const char* text, int size, unsigned int flags,
                                    sqlite3_stmt** statement, const char** tail) {
  QLN_NEXT(sqlite3_prepare_v3);
  const int failure = Fails();
  return failure != SQLITE_OK ? failure : real(database, text, size, flags, statement, tail);
}

QLN_IN_FRONT int sqlite3_step(sqlite3_stmt* statement) {
  QLN_NEXT(sqlite3_step);
  const int failure = std::exchange(endsStatement, false) ? (told = SQLITE_NOMEM) : Fails();
  return failure != SQLITE_OK ? failure : real(statement);
}

QLN_IN_FRONT int sqlite3_bind_blob64(sqlite3_stmt* statement, int index, const void* bytes,
                                     sqlite3_uint64 size, void (*free)(void*)) {
  QLN_NEXT(sqlite3_bind_blob64);
  const int failure = Fails();
  return failure != SQLITE_OK ? failure : real(statement, index, bytes, size, free);
}

QLN_IN_FRONT int sqlite3_bind_int64(sqlite3_stmt* statement, int index, sqlite3_int64 value) {
  QLN_NEXT(sqlite3_bind_int64);
  const int failure = Fails();
  return failure != SQLITE_OK ? failure : real(statement, index, value);
}

QLN_IN_FRONT const void* sqlite3_column_blob(sqlite3_stmt* statement, int column) {
  QLN_NEXT(sqlite3_column_blob);
  // Memory is the one reason that it has, and the statement then goes no further.
  if (code == SQLITE_NOMEM && Fails() != SQLITE_OK) {
    endsStatement = true;
    return nullptr;
  }
  return real(statement, column);
}

QLN_IN_FRONT int sqlite3_deserialize(sqlite3* database, const char* schema, unsigned char* bytes,
                                     sqlite3_int64 size, sqlite3_int64 room, unsigned flags) {
  QLN_NEXT(sqlite3_deserialize);
  const int failure = Fails();
  if (failure == SQLITE_OK) return real(database, schema, bytes, size, room, flags);
  sqlite3_free(bytes);  // as it does itself
  return failure;
}

QLN_IN_FRONT void* sqlite3_malloc64(sqlite3_uint64 size) {
  QLN_NEXT(sqlite3_malloc64);
  return Fails() != SQLITE_OK ? nullptr : real(size);
}

QLN_IN_FRONT int sqlite3_file_control(sqlite3* database, const char* schema, int operation, void* argument) {
  QLN_NEXT(sqlite3_file_control);
  if (operation == SQLITE_FCNTL_LAST_ERRNO && told != SQLITE_OK) {
    *static_cast<int*>(argument) = systemReason;
    return SQLITE_OK;
  }
  const int failure = Fails();
  if (failure != SQLITE_OK) return failure;
  const int result = real(database, schema, operation, argument);
  if (operation == SQLITE_FCNTL_FILE_POINTER && hidesFile) *static_cast<sqlite3_file**>(argument) = shownFile;
  return result;
}

QLN_IN_FRONT int sqlite3_errcode(sqlite3* database) {
  QLN_NEXT(sqlite3_errcode);
  return told != SQLITE_OK ? told : real(database);
}

QLN_IN_FRONT int clock_gettime(clockid_t clock, timespec* time) noexcept {
  const long result = syscall(SYS_clock_gettime, clock, time);
  if (result == 0 && clock == CLOCK_MONOTONIC) time->tv_sec += secondsOn += secondsALook;
  return static_cast<int>(result);
}
