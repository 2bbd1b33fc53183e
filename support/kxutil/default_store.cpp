// The default store: finds its file, lends a connection to each call, and reports a trouble once.

#include "kxutil/default_store.h"

#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

#include "kxutil/kxutil.h"
#include "kxutil/sqlite_connection.h"

namespace qln {
namespace {

std::string HomeFolder() {
  const char* const home = std::getenv("HOME");
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
  const char* const configured = std::getenv("XDG_CONFIG_HOME");
  std::string folder = configured != nullptr && *configured == '/' ? configured : "";
  if (folder.empty()) {
    folder = HomeFolder();
    if (folder.empty()) return "";
    folder += "/.config";
  }
  return folder + "/tarnwick/settings.db";
}

class SqliteStore : public ConfigStore {
 public:
  std::optional<ConfigValue> Read(const ConfigName& name) override {
    std::optional<ConfigValue> value;
    Use("be read", [&](SqliteConnection& connection) { return connection.Read(name, value); });
    return value;
  }

  bool Write(const ConfigName& name, const ConfigValue& value) override {
    return Use("be written", [&](SqliteConnection& connection) { return connection.Write(name, value); });
  }

  bool Remove(const ConfigName& name) override {
    return Use("be written", [&](SqliteConnection& connection) { return connection.Remove(name); });
  }

  void SetPath(const std::string& path) {
    const std::lock_guard<std::mutex> lock(mutex_);
    path_ = path;
    idle_.clear();
    reported_.clear();
  }

 private:
  // Lends a connection to one action. Connections are not shared between threads at a time, so that a writer
  // that waits for another process holds no reader up.
  template <typename Action>
  bool Use(const char* what, Action action) {
    std::string path;
    std::string problem;
    std::unique_ptr<SqliteConnection> connection = Borrow(path, problem);
    if (connection == nullptr) {
      Report(path, "be opened", problem);
      return false;
    }
    const bool done = action(*connection);
    if (!done) problem = connection->problem();
    GiveBack(path, std::move(connection));
    if (done) {
      Forget(what);
    } else {
      Report(path, what, problem);
    }
    return done;
  }

  std::unique_ptr<SqliteConnection> Borrow(std::string& path, std::string& problem) {
    const std::lock_guard<std::mutex> lock(mutex_);
    path = path_.empty() ? UsersOwnPath() : path_;
    while (!idle_.empty()) {
      std::unique_ptr<SqliteConnection> connection = std::move(idle_.back());
      idle_.pop_back();
      if (connection->IsFor(path)) return connection;
    }
    // Opened under the lock: making the file must not overlap with another thread's first use of it.
    return SqliteConnection::Open(path, problem);
  }

  void GiveBack(const std::string& path, std::unique_ptr<SqliteConnection> connection) {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (path == (path_.empty() ? UsersOwnPath() : path_)) idle_.push_back(std::move(connection));
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

  void Forget(const char* what) {
    const std::lock_guard<std::mutex> lock(mutex_);
    ForgetLocked(what);
    ForgetLocked("be opened");
  }

  void ForgetLocked(std::string_view what) {
    std::erase_if(reported_, [=](const Reported& reported) { return reported.what == what; });
  }

  struct Reported {
    std::string_view what;
    std::string problem;
  };

  std::mutex mutex_;
  std::string path_;
  std::vector<std::unique_ptr<SqliteConnection>> idle_;
  std::vector<Reported> reported_;
};

// Made on first use and never destroyed: settings may be read while the process ends.
SqliteStore& TheStore() {
  static SqliteStore* const store = new SqliteStore;
  return *store;
}

}  // namespace

ConfigStore& DefaultStore() { return TheStore(); }

void SetDefaultStorePath(const std::string& path) { TheStore().SetPath(path); }

}  // namespace qln
