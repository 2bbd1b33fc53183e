// A folder of a test's own, for as long as the test runs.
#ifndef TESTS_SUPPORT_TEMPORARY_FOLDER_H
#define TESTS_SUPPORT_TEMPORARY_FOLDER_H

#include <cstdlib>
#include <filesystem>
#include <string>

namespace qln::test {

// A folder that is gone with everything in it at the end.
class TemporaryFolder {
 public:
  TemporaryFolder() {
    // In memory where there is such a place: a test that flushes what it writes waits for no disk.
    const char* const memory = "/dev/shm";
    const bool inMemory = std::filesystem::is_directory(memory);
    std::string name =
        (inMemory ? memory : std::filesystem::temp_directory_path().string()) + "/qln-test.XXXXXX";
    path_ = mkdtemp(name.data()) != nullptr ? name : "";
  }
  ~TemporaryFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;
  const std::string& path() const { return path_; }
  std::string operator/(const std::string& name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

}  // namespace qln::test

#endif
