// One change of the settings, step by step. The lock is SQLite's own on the file as it stands, so that other
// tools are kept off as well; the copy is replaced under it.

#include "kxutil/settings_writer.h"

#include <unistd.h>

#include <algorithm>
#include <mutex>
#include <vector>

#include "kxutil/committed_copy.h"
#include "kxutil/database_file.h"

namespace qln {
namespace {

constexpr std::chrono::seconds kLongestWait{30};
constexpr useconds_t kPause = 2000;
constexpr size_t kMostKnownFiles = 16;

// Files that this process has checked, or written, as they then were: their structure is sound.
class SoundFiles {
 public:
  bool Knows(const FileState& state) {
    const std::lock_guard<std::mutex> lock(mutex_);
    return std::find(states_.begin(), states_.end(), state) != states_.end();
  }
  void Add(const FileState& state) {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (states_.size() >= kMostKnownFiles) states_.erase(states_.begin());
    states_.push_back(state);
  }

 private:
  std::mutex mutex_;
  std::vector<FileState> states_;
};

SoundFiles& Sound() {
  static SoundFiles* const files = new SoundFiles;
  return *files;
}

enum class Step { kGoOn, kFailed, kDamaged, kAgain };

class Change {
 public:
  // Without changes it only looks for damage.
  Change(std::string path, const ConfigChanges* changes)
      : path_(TargetOf(path)),
        changes_(changes),
        deadline_(std::chrono::steady_clock::now() + kLongestWait) {}

  ChangeReport Run() {
    for (;;) {
      switch (Attempt()) {
        case Step::kGoOn:
          report_.done = true;
          return report_;
        case Step::kFailed:
          return report_;
        case Step::kDamaged:
          // A new store that is damaged as well is no matter of the file.
          if (!report_.setAside.empty() || !PutAside()) return report_;
          break;
        case Step::kAgain:
          if (std::chrono::steady_clock::now() < deadline_) {
            usleep(kPause);
            break;
          }
          report_.problem = "database is locked";
          return report_;
      }
    }
  }

 private:
  // From the lock to the new file. What each step finds is in report_.
  Step Attempt() {
    if (changes_ != nullptr && !MakeFile(path_, report_.problem)) return Step::kFailed;
    if (!LookAt(path_, state_, report_.problem)) return Step::kFailed;
    if (!state_.exists) return changes_ != nullptr ? Step::kAgain : Step::kFailed;
    SqliteConnection file;
    std::string bytes;
    Step step = Lock(file);
    if (step == Step::kFailed && changes_ != nullptr && IsGone()) return Step::kAgain;
    if (step == Step::kGoOn) step = Load(file, bytes);
    SqliteConnection image;
    SettingsTable table(image);
    if (step == Step::kGoOn) step = Open(image, table, bytes);
    if (step == Step::kGoOn && changes_ == nullptr) {
      report_.problem = "it could not be read";
      return Step::kFailed;
    }
    if (step == Step::kGoOn) step = MakeChanges(image, table, bytes);
    if (step != Step::kGoOn) return step;
    FileState made;
    if (!ReplaceFile(path_, state_, bytes, made, report_.problem)) return Step::kFailed;
    Sound().Add(made);
    return Step::kGoOn;
  }

  // Another process may just have set it aside.
  bool IsGone() const {
    FileState now;
    std::string ignored;
    return LookAt(path_, now, ignored) && !now.exists;
  }

  // Keeps other writers off the file, and makes sure that it is still the one of that name.
  Step Lock(SqliteConnection& file) {
    FileForm form;
    if (!FormOfFile(path_, form, report_.problem)) return Step::kFailed;
    if (form == FileForm::kNoDatabase) return Fail("file is not a database");
    if (form == FileForm::kWithLog) {
      const Step worked = WorkLogIn();
      if (worked != Step::kGoOn) return worked;
    }
    const bool opened = file.OpenFile(path_, deadline_);
    // Others may not write it: nor is it replaced, though their folder would allow that.
    if (opened && changes_ != nullptr && file.IsReadOnly()) return Fail("it may not be written");
    // A look leaves a file its log, which a change of the journal would work in.
    hasLog_ = form == FileForm::kWithLog && changes_ == nullptr;
    // Nothing is written through this connection, and no journal of it may stand beside the new file, which
    // it would be taken to belong to: that of an empty file empties.
    const bool quiet = opened && (hasLog_ || file.Run("PRAGMA journal_mode = MEMORY"));
    const bool locked = quiet && file.Run("BEGIN IMMEDIATE");
    const Step step = locked ? Step::kGoOn : Trouble(file);
    if (step == Step::kFailed) return step;
    if (file.HasMoved()) return Step::kAgain;
    if (!LookAt(path_, state_, report_.problem)) return Step::kFailed;
    return step;
  }

  // A log that were left beside the new file would be taken for its own. A damaged file is found out first,
  // while it is as it was.
  Step WorkLogIn() {
    std::string bytes;
    if (!CommittedCopy(path_, bytes, report_.problem)) return Step::kFailed;
    SqliteConnection image;
    SettingsTable table(image);
    const Step step = Open(image, table, bytes);
    if (step != Step::kGoOn || changes_ == nullptr) return step;
    for (;;) {
      SqliteConnection file;
      std::string mode;
      const bool asked = file.OpenFile(path_, deadline_) && file.Ask("PRAGMA journal_mode = DELETE", mode);
      if (asked && mode == "delete") return Step::kGoOn;
      if (!asked && file.code() != SQLITE_BUSY && file.code() != SQLITE_LOCKED) return Trouble(file);
      if (std::chrono::steady_clock::now() >= deadline_) return Fail("database is locked");
      usleep(kPause);
    }
  }

  Step Load(SqliteConnection& file, std::string& bytes) {
    if (static_cast<uint64_t>(state_.size) > kLargestStore) return Fail("it is too large");
    std::string stored;
    if (!file.Serialize(bytes) || !file.ReadAll(stored)) return Trouble(file);
    if (hasLog_) return Step::kGoOn;  // with the log the pages are others
    // SQLite hands out zeros for a page that it could not read, which is no damage of the file.
    const size_t known = std::min(bytes.size(), stored.size());
    if (bytes.compare(0, known, stored, 0, known) != 0) return Fail("disk I/O error");
    return Step::kGoOn;
  }

  // The copy in memory, whose structure is checked unless this process knows it.
  Step Open(SqliteConnection& image, SettingsTable& table, const std::string& bytes) {
    if (!image.OpenImage(bytes)) return Trouble(image);
    switch (table.Attach()) {
      case TableState::kReady:
        break;
      case TableState::kDamaged:
        return Damaged(table.problem());
      case TableState::kForeign:
      case TableState::kFailed:
        return Fail(table.problem());
    }
    if (bytes.empty() || (changes_ != nullptr && Sound().Knows(state_))) return Step::kGoOn;
    switch (table.Check()) {
      case CheckResult::kSound:
      case CheckResult::kDamagedValues:  // each is told, and absent, when it is read
        return Step::kGoOn;
      case CheckResult::kDamaged:
        return Damaged("database disk image is malformed");
      case CheckResult::kFailed:
        break;
    }
    return Trouble(image);
  }

  Step MakeChanges(SqliteConnection& image, SettingsTable& table, std::string& bytes) {
    if (!image.Run("BEGIN") || !table.Make() || !table.Apply(*changes_)) return Trouble(image);
    if (!image.Run("COMMIT") || !image.Serialize(bytes)) return Trouble(image);
    if (bytes.size() > kLargestStore) return Fail("it would become too large");
    // Still under the lock, the very bytes that will stand in the file must give back what was changed.
    SqliteConnection copy;
    SettingsTable written(copy);
    if (!copy.OpenImage(bytes)) return Trouble(copy);
    if (written.Attach() == TableState::kReady && written.Holds(*changes_)) return Step::kGoOn;
    // Of a copy that cannot be looked at nobody knows.
    if (copy.code() == SQLITE_NOMEM) return Fail("out of memory");
    return Damaged("a change does not read back");
  }

  bool PutAside() {
    std::string problem;
    const std::string name = SetAside(path_, state_, problem);
    if (!name.empty()) {
      report_.setAside = name;
      report_.damage = report_.problem;
    } else if (!problem.empty()) {
      report_.problem += ", and it cannot be set aside: " + problem;
      return false;
    }
    // Otherwise another process was faster.
    return true;
  }

  Step Fail(const std::string& problem) {
    report_.problem = problem;
    return Step::kFailed;
  }
  Step Damaged(const std::string& problem) {
    report_.problem = problem;
    return Step::kDamaged;
  }
  Step Trouble(SqliteConnection& connection) {
    return connection.damaged() ? Damaged(connection.problem()) : Fail(connection.problem());
  }

  const std::string path_;
  const ConfigChanges* const changes_;
  const Deadline deadline_;
  FileState state_;
  bool hasLog_ = false;  // the file that is looked at
  ChangeReport report_;
};

}  // namespace

ChangeReport ChangeSettings(const std::string& path, const ConfigChanges& changes) {
  return Change(path, &changes).Run();
}

ChangeReport SetAsideIfDamaged(const std::string& path) { return Change(path, nullptr).Run(); }

}  // namespace qln
