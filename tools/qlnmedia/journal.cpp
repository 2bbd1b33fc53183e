// Lines of JSON behind each other, held by a lock of the file.

#include "journal.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <iterator>

#include "qlnmedia/error.h"

namespace qlnmedia {

using nlohmann::json;

Journal::Journal(std::string path, std::string work) : path_(std::move(path)), work_(std::move(work)) {
  constexpr mode_t kMode = 0666;
  file_ = open(path_.c_str(), O_RDWR | O_CREAT | O_APPEND | O_CLOEXEC, kMode);
  if (file_ < 0) throw Error(path_, std::strerror(errno));
  try {
    if (flock(file_, LOCK_EX | LOCK_NB) != 0)
      throw Error(path_, "another run has this journal", "give it one of its own");
    Read();
  } catch (...) {
    close(file_);
    throw;
  }
}

Journal::~Journal() { close(file_); }

void Journal::Read() {
  std::ifstream in(path_, std::ios::binary);
  off_t whole = 0;
  size_t number = 0;
  for (std::string line; std::getline(in, line);) {
    if (in.eof()) {  // no line feed: the run before ended here
      if (ftruncate(file_, whole) != 0) throw Error(path_, std::strerror(errno));
      break;
    }
    ++number;
    whole += static_cast<off_t>(line.size() + 1);
    const json entry = json::parse(line, nullptr, false);
    if (!entry.is_object() || !entry.contains("work") || !entry["work"].is_string() ||
        !entry.contains("file") || !entry["file"].is_string())
      throw Error(path_, fmt::format("line {} is none of a journal", number), "give a file of its own");
    if (entry["work"] == work_) lines_[entry["file"]] = std::move(line);
  }
}

json Journal::HeadOf(const std::string& file) const {
  json head = {{"work", work_}, {"file", file}};
  struct stat status {};
  if (stat(file.c_str(), &status) != 0) return head;
  constexpr int64_t kSecond = 1'000'000'000;
  head["size"] = status.st_size;
  head["modified"] = status.st_mtim.tv_sec * kSecond + status.st_mtim.tv_nsec;
  return head;
}

std::optional<json> Journal::Find(const json& head) const {
  const auto found = lines_.find(head["file"]);
  if (found == lines_.end()) return std::nullopt;
  json entry = json::parse(found->second);
  for (const char* key : {"size", "modified", "options"})
    if (entry.value(key, json()) != head.value(key, json())) return std::nullopt;
  return entry;
}

void Journal::Add(const json& entry) {
  const std::string line = entry.dump(-1, ' ', true, json::error_handler_t::replace) + "\n";
  const std::lock_guard lock(mutex_);
  if (write(file_, line.data(), line.size()) != static_cast<ssize_t>(line.size()))
    throw Error(path_, "could not be written whole", "look for room on the disk");
}

}  // namespace qlnmedia
