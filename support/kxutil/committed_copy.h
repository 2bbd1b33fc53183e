// What is committed in a database that SQLite will not read where it stands: another process has it locked,
// or a journal beside it would have to be worked in, in a folder that refuses.
#ifndef KXUTIL_COMMITTED_COPY_H
#define KXUTIL_COMMITTED_COPY_H

#include <string>

#include "kxutil/database_file.h"

namespace qln {

// The database file and its journals, to tell whether a copy is still the newest one.
struct DatabaseState {
  FileState file, journal, log;
  bool operator==(const DatabaseState&) const = default;
};
DatabaseState StateOfDatabase(const std::string& path);

// The bytes of the database as of its last committed transaction. Nothing beside it is touched and no lock is
// waited for. False with a text in `problem` if it cannot be read, or changes all the time.
bool CommittedCopy(const std::string& path, std::string& image, std::string& problem);

// The first bytes of a database file tell how it keeps its journal.
enum class FileForm {
  kPlain,      // an SQLite file, or an empty one
  kWithLog,    // one with a write-ahead log
  kNoDatabase  // something else; damage leaves the mark in front recognisable
};
bool FormOfFile(const std::string& path, FileForm& form, std::string& problem);

}  // namespace qln

#endif
