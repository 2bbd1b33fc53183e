// The journal of a run over many files: what is done stays done when the run is stopped.
#ifndef TOOLS_QLNMEDIA_JOURNAL_H
#define TOOLS_QLNMEDIA_JOURNAL_H

#include <map>
#include <mutex>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

namespace qlnmedia {

// One line of JSON a file, appended in one piece when the file is done: `work`, `file`, `size` and `modified`
// (nanoseconds) as they were before, `status`, and what was found or failed. The Python package has the same.
// A line that was cut off counts as not written. Several threads may use one journal, and no two runs.
class Journal {
 public:
  // Opens or makes it. Throws Error where that fails, where another run has it, and where it is none.
  Journal(std::string path, std::string work);
  ~Journal();
  Journal(const Journal&) = delete;
  Journal& operator=(const Journal&) = delete;

  // `work`, `file`, `size` and `modified` of a file, as it is now.
  nlohmann::json HeadOf(const std::string& file) const;
  // The entry of a file that is still the one that was worked on.
  std::optional<nlohmann::json> Find(const nlohmann::json& head) const;
  // Throws Error where the line cannot be written whole.
  void Add(const nlohmann::json& entry);

 private:
  void Read();

  std::string path_;
  std::string work_;
  int file_ = -1;
  std::map<std::string, std::string> lines_;  // the last of each file
  std::mutex mutex_;
};

}  // namespace qlnmedia

#endif
