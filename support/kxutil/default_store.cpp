// The default store: finds its file, lends a reader to each call, gathers changes, and reports a trouble
// once.

#include "kxutil/default_store.h"

#include <pwd.h>
#include <unistd.h>

#include <cstdlib>
#include <memory>
#include <mutex>
#include <set>
#include <utility>
#include <vector>

#include "kxutil/database_file.h"
#include "kxutil/kxutil.h"
#include "kxutil/settings_reader.h"
#include "kxutil/settings_writer.h"

namespace qln {
namespace {

constexpr char kBeRead[] = "be read";
constexpr char kBeWritten[] = "be written";
constexpr size_t kMostToldNames = 1000;

std::string HomeFolder() {
  const char* const home = std::getenv("HOME");  // NOLINT(concurrency-mt-unsafe): nothing of ours sets it
  if (home != nullptr && *home == '/') return home;
  passwd entry;
  passwd* found = nullptr;
  char names[4096];
  if (getpwuid_r(getuid(), &entry, names, sizeof names, &found) != 0 || found == nullptr) return "";
  return found->pw_dir;
}

// $XDG_CONFIG_HOME/tarnwick/settings.db, else ~/.config/tarnwick/settings.db (XDG Base Directory: a folder
// that is not absolute does not count). Empty if the user has no home.
std::string UsersOwnPath() {
  // NOLINTNEXTLINE(concurrency-mt-unsafe): nothing of ours sets it
  const char* const configured = std::getenv("XDG_CONFIG_HOME");
  std::string folder = configured != nullptr && *configured == '/' ? configured : "";
  if (folder.empty()) {
    folder = HomeFolder();
    if (folder.empty()) return "";
    folder += "/.config";
  }
  return folder + "/tarnwick/settings.db";
}

// The changes that the calling thread has gathered since its outermost Begin.
struct Group {
  int depth = 0;
  ConfigChanges changes;
};
Group& GroupOfThread() {
  thread_local Group group;
  return group;
}

class DatabaseStore : public ConfigStore {
 public:
  std::optional<ConfigValue> Read(const ConfigName& name) override {
    const Group& group = GroupOfThread();
    if (group.depth != 0) {
      const auto found = group.changes.find(name);
      if (found != group.changes.end()) return found->second;
    }
    const std::string path = Path();
    std::optional<ConfigValue> value;
    std::string problem;
    switch (ReadFrom(path, name, value, problem)) {
      case ReadOutcome::kDone:
        Readable();
        return value;
      case ReadOutcome::kDamagedValue:
        ReportValue(path, name);
        KeepFromChanges(Refusal::kDamaged);
        break;
      case ReadOutcome::kDamaged:
        KeepFromChanges(Refusal::kDamaged);
        Report(path, kBeRead, problem);
        break;
      case ReadOutcome::kFailed:
        KeepFromChanges(Refusal::kUnreadable);
        Report(path, kBeRead, problem);
        break;
    }
    return std::nullopt;
  }

  bool Write(const ConfigName& name, const ConfigValue& value) override { return Change(name, value); }
  bool Remove(const ConfigName& name) override { return Change(name, std::nullopt); }

  bool Begin() override {
    ++GroupOfThread().depth;
    return true;
  }

  bool End() override {
    Group& group = GroupOfThread();
    if (group.depth == 0) return false;
    if (--group.depth != 0) return true;
    return Make(std::exchange(group.changes, {}));
  }

  void SetPath(const std::string& path) {
    std::vector<std::unique_ptr<SettingsReader>> closed;
    {
      const std::lock_guard<std::mutex> lock(mutex_);
      path_ = AbsolutePath(path);
      closed.swap(idle_);
      ForgetAll();
    }
    for (auto& reader : closed) Close(std::move(reader));
  }

 private:
  // Why no changes are taken until a read has succeeded.
  enum class Refusal { kNone, kDamaged, kUnreadable };

  bool Change(const ConfigName& name, const std::optional<ConfigValue>& value) {
    Group& group = GroupOfThread();
    if (group.depth == 0) return Make({{name, value}});
    group.changes.insert_or_assign(name, value);
    return true;
  }

  bool Make(ConfigChanges changes) {
    if (changes.empty()) return true;
    const std::string path = Path();
    const Refusal refusal = CurrentRefusal();
    if (path.empty()) {
      Report(path, kBeWritten, "the user has no home folder");
      return false;
    }
    if (refusal == Refusal::kUnreadable) return false;  // told at the read
    ChangeReport report;
    if (refusal == Refusal::kDamaged) {
      report = SetAsideIfDamaged(path);
    } else if (!LeaveWhatIsSo(path, changes)) {
      return true;
    } else {
      report = ChangeSettings(path, changes);
    }
    if (!report.setAside.empty()) {
      ErrOut("Settings store %s is damaged (%s) and was set aside as %s", path.c_str(), report.damage.c_str(),
             report.setAside.c_str());
    } else if (!report.done && refusal == Refusal::kNone) {
      Report(path, kBeWritten, report.problem);
    }
    if (report.done) Forget(kBeWritten);
    return report.done;
  }

  // Takes out the changes that would change nothing; false if none is left. Most removals find nothing, and
  // nothing is written for an equal value.
  bool LeaveWhatIsSo(const std::string& path, ConfigChanges& changes) {
    for (auto change = changes.begin(); change != changes.end();) {
      std::optional<ConfigValue> value;
      std::string problem;
      if (ReadFrom(path, change->first, value, problem) == ReadOutcome::kDone && value == change->second) {
        change = changes.erase(change);
      } else {
        ++change;
      }
    }
    return !changes.empty();
  }

  // Readers are not shared between threads at a time, and neither opened nor closed under the mutex.
  ReadOutcome ReadFrom(const std::string& path, const ConfigName& name, std::optional<ConfigValue>& value,
                       std::string& problem) {
    if (path.empty()) {
      problem = "the user has no home folder";
      return ReadOutcome::kFailed;
    }
    std::unique_ptr<SettingsReader> reader = Borrow(path);
    const ReadOutcome outcome = reader->Read(name, value);
    if (outcome != ReadOutcome::kDone) problem = reader->problem();
    GiveBack(std::move(reader));
    return outcome;
  }

  std::unique_ptr<SettingsReader> Borrow(const std::string& path) {
    std::unique_ptr<SettingsReader> reader;
    {
      const std::lock_guard<std::mutex> lock(mutex_);
      if (!idle_.empty()) {
        reader = std::move(idle_.back());
        idle_.pop_back();
      }
    }
    if (reader != nullptr && reader->belongsHere() && reader->path() == path) return reader;
    Close(std::move(reader));
    return std::make_unique<SettingsReader>(path);
  }

  void GiveBack(std::unique_ptr<SettingsReader> reader) {
    const std::lock_guard<std::mutex> lock(mutex_);
    idle_.push_back(std::move(reader));
  }

  // A reader that came through a fork stays open: closing it would disturb the parent.
  static void Close(std::unique_ptr<SettingsReader> reader) {
    if (reader != nullptr && !reader->belongsHere()) static_cast<void>(reader.release());
  }

  // Where the store is now; what is known of another file is forgotten.
  std::string Path() {
    const std::lock_guard<std::mutex> lock(mutex_);
    std::string path = path_.empty() ? UsersOwnPath() : path_;
    if (path != lastPath_) ForgetAll();
    lastPath_ = path;
    return path;
  }

  Refusal CurrentRefusal() {
    const std::lock_guard<std::mutex> lock(mutex_);
    return refusal_;
  }
  void KeepFromChanges(Refusal refusal) {
    const std::lock_guard<std::mutex> lock(mutex_);
    refusal_ = refusal;
  }
  void Readable() {
    const std::lock_guard<std::mutex> lock(mutex_);
    refusal_ = Refusal::kNone;
    ForgetLocked(kBeRead);
  }

  // A trouble is told once, and again only when something else came in between.
  void Report(const std::string& path, const char* what, const std::string& problem) {
    {
      const std::lock_guard<std::mutex> lock(mutex_);
      for (const Reported& reported : reported_) {
        if (reported.what == what && reported.problem == problem) return;
      }
      ForgetLocked(what);
      reported_.push_back({what, problem});
    }
    ErrOut("Settings store %s cannot %s: %s", path.c_str(), what, problem.c_str());
  }

  void ReportValue(const std::string& path, const ConfigName& name) {
    {
      const std::lock_guard<std::mutex> lock(mutex_);
      if (told_.size() >= kMostToldNames || !told_.insert(name).second) return;
    }
    ErrOut("Settings store %s holds a damaged value, which counts as absent: %s, %s", path.c_str(),
           name.section.c_str(), name.key.c_str());
  }

  void Forget(const char* what) {
    const std::lock_guard<std::mutex> lock(mutex_);
    ForgetLocked(what);
  }
  void ForgetLocked(std::string_view what) {
    std::erase_if(reported_, [=](const Reported& reported) { return reported.what == what; });
  }
  void ForgetAll() {
    refusal_ = Refusal::kNone;
    reported_.clear();
    told_.clear();
  }

  struct Reported {
    std::string_view what;
    std::string problem;
  };

  std::mutex mutex_;
  std::string path_;
  std::string lastPath_;
  std::vector<std::unique_ptr<SettingsReader>> idle_;
  Refusal refusal_ = Refusal::kNone;
  std::vector<Reported> reported_;
  std::set<ConfigName> told_;  // the keys whose damage was told
};

// Made on first use and never destroyed: settings may be read while the process ends.
DatabaseStore& TheStore() {
  static DatabaseStore* const store = new DatabaseStore;
  return *store;
}

}  // namespace

ConfigStore& DefaultStore() { return TheStore(); }

void SetDefaultStorePath(const std::string& path) { TheStore().SetPath(path); }

}  // namespace qln
