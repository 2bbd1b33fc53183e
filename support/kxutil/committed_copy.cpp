// A private copy: files read twice until both times are equal, and a journal worked in by SQLite in a folder
// of our own.

#include "kxutil/committed_copy.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <system_error>

#include "kxutil/sqlite_connection.h"

namespace qln {
namespace {

constexpr int kMostAttempts = 50;
constexpr useconds_t kPause = 1000;
constexpr std::chrono::seconds kLongestWait{5};

constexpr char kMagic[16] = {'S', 'Q', 'L', 'i', 't', 'e', ' ', 'f', 'o', 'r', 'm', 'a', 't', ' ', '3', '\0'};
constexpr size_t kWriteVersion = 18, kReadVersion = 19;  // 1: rollback journal, 2: write-ahead log

struct Files {
  std::string database;
  std::string journal, log;  // empty if there is none
  bool operator==(const Files&) const = default;
};

std::string TextOf(int error) { return std::generic_category().message(error); }

bool ReadDatabase(const std::string& path, std::string& bytes, std::string& problem) {
  SqliteConnection connection;
  uint64_t size = 0;
  if (!connection.OpenUnlocked(path) || !connection.RawSize(size)) {
    problem = connection.problem();
    return false;
  }
  if (size > kLargestStore) {
    problem = "it is too large";
    return false;
  }
  bytes.resize(static_cast<size_t>(size));
  if (size == 0 || connection.ReadRaw(0, bytes.data(), bytes.size())) return true;
  problem = connection.problem();
  return false;
}

// SQLite holds no locks on these, so they may be opened and closed.
bool ReadJournal(const std::string& path, std::string& bytes, std::string& problem) {
  const int descriptor = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  if (descriptor < 0) {
    if (errno == ENOENT) return true;
    problem = TextOf(errno);
    return false;
  }
  char block[64 << 10];
  ssize_t got = 0;
  bytes.clear();
  while (bytes.size() <= kLargestStore && (got = read(descriptor, block, sizeof block)) > 0)
    bytes.append(block, static_cast<size_t>(got));
  if (got < 0) problem = TextOf(errno);
  if (got > 0) problem = "its journal is too large";
  close(descriptor);
  return got == 0;
}

bool ReadFiles(const std::string& path, Files& files, std::string& problem) {
  return ReadDatabase(path, files.database, problem) &&
         ReadJournal(path + "-journal", files.journal, problem) &&
         ReadJournal(path + "-wal", files.log, problem);
}

// A folder for this process alone, gone with its files at the end.
class PrivateFolder {
 public:
  PrivateFolder() {
    const char* const configured =
        std::getenv("TMPDIR");  // NOLINT(concurrency-mt-unsafe): nothing of ours sets it
    for (const char* const place : {configured, "/tmp", "/dev/shm"}) {
      if (place == nullptr || *place != '/') continue;
      path_.reserve(std::strlen(place) + sizeof kName + sizeof "/copy-journal");
      path_.assign(place).append(kName);
      if (mkdtemp(path_.data()) != nullptr) return;
      path_.clear();
    }
  }
  ~PrivateFolder() {
    if (path_.empty()) return;
    // There is room for the names: without memory the folder goes too.
    const size_t length = path_.size();
    for (const char* const name : {"/copy", "/copy-journal", "/copy-wal", "/copy-shm"}) {
      unlink(path_.append(name).c_str());
      path_.resize(length);
    }
    rmdir(path_.c_str());
  }
  PrivateFolder(const PrivateFolder&) = delete;
  PrivateFolder& operator=(const PrivateFolder&) = delete;
  bool made() const { return !path_.empty(); }
  std::string database() const { return path_ + "/copy"; }

 private:
  static constexpr char kName[] = "/kxutil.XXXXXX";
  std::string path_;
};

bool Put(const std::string& path, const std::string& bytes, std::string& problem) {
  const int descriptor = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
  bool done = descriptor >= 0;
  for (size_t at = 0; done && at < bytes.size();) {
    const ssize_t written = write(descriptor, bytes.data() + at, bytes.size() - at);
    done = written > 0;
    if (done) at += static_cast<size_t>(written);
  }
  if (!done) problem = TextOf(errno);
  if (descriptor >= 0) close(descriptor);
  return done;
}

bool WorkJournalIn(const Files& files, std::string& image, std::string& problem) {
  const PrivateFolder folder;
  if (!folder.made()) {
    problem = TextOf(errno);
    return false;
  }
  const std::string path = folder.database();
  if (!Put(path, files.database, problem) ||
      (!files.journal.empty() && !Put(path + "-journal", files.journal, problem)) ||
      (!files.log.empty() && !Put(path + "-wal", files.log, problem))) {
    return false;
  }
  SqliteConnection connection;
  std::string mode;
  if (connection.OpenFile(path, std::nullopt) && connection.Run("PRAGMA synchronous = OFF") &&
      connection.Ask("PRAGMA journal_mode = DELETE", mode) && connection.ReadAll(image)) {
    return true;
  }
  problem = connection.problem();
  return false;
}

// For a file that somebody changes all the time: its own locks, and some waiting.
bool ReadUnderLock(const std::string& path, std::string& image, std::string& problem) {
  SqliteConnection connection;
  std::string tables;
  if (connection.OpenFile(path, std::chrono::steady_clock::now() + kLongestWait) && connection.Run("BEGIN") &&
      connection.Ask("SELECT count(*) FROM sqlite_master", tables) && connection.Serialize(image)) {
    return true;
  }
  problem = "it changes all the time: " + connection.problem();
  return false;
}

}  // namespace

DatabaseState StateOfDatabase(const std::string& path) {
  DatabaseState state;
  std::string ignored;
  LookAt(path, state.file, ignored);
  LookAt(path + "-journal", state.journal, ignored);
  LookAt(path + "-wal", state.log, ignored);
  return state;
}

bool CommittedCopy(const std::string& path, std::string& image, std::string& problem) {
  // Database, journals, database, journals: if the second pair is the first one, then the database did not
  // change while the journals were read, and the two belong together.
  Files files, again;
  int attempts = 0;
  do {
    if (++attempts > kMostAttempts) return ReadUnderLock(path, image, problem);
    if (attempts > 1) usleep(kPause);
    if (!ReadFiles(path, files, problem) || !ReadFiles(path, again, problem)) return false;
  } while (files != again);
  if (!files.journal.empty() || !files.log.empty()) return WorkJournalIn(files, image, problem);
  image = std::move(files.database);
  // In memory there is no log.
  if (image.size() > kReadVersion && image[kWriteVersion] == 2 && image[kReadVersion] == 2)
    image[kWriteVersion] = image[kReadVersion] = 1;
  return true;
}

bool FormOfFile(const std::string& path, FileForm& form, std::string& problem) {
  SqliteConnection connection;
  uint64_t size = 0;
  char header[kReadVersion + 1] = {};
  if (!connection.OpenUnlocked(path) || !connection.RawSize(size) ||
      (size != 0 &&
       !connection.ReadRaw(0, header, static_cast<size_t>(std::min<uint64_t>(size, sizeof header))))) {
    problem = connection.problem();
    return false;
  }
  form = FileForm::kPlain;
  if (size == 0) {
    // SQLite takes a single byte for an empty file.
    FileState state;
    if (!LookAt(path, state, problem)) return false;
    if (state.size == 1) form = FileForm::kNoDatabase;
    return true;
  }
  size_t same = 0, zeros = 0;
  for (size_t i = 0; i < sizeof kMagic; ++i) {
    if (header[i] == kMagic[i]) ++same;
    if (header[i] == 0) ++zeros;
  }
  if (size < sizeof kMagic || (same < sizeof kMagic / 2 && zeros < sizeof kMagic)) {
    form = FileForm::kNoDatabase;
  } else if (header[kWriteVersion] == 2 || header[kReadVersion] == 2) {
    form = FileForm::kWithLog;
  }
  return true;
}

}  // namespace qln
