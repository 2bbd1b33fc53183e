// Runs in which each call that the library makes fails once, and what all of them hold to.
#ifndef TESTS_FAULTS_LIBRARY_FAULTS_H
#define TESTS_FAULTS_LIBRARY_FAULTS_H

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <functional>
#include <string>
#include <string_view>
#include <utility>

#include "kxutil/kxutil.h"
#include "support/fault_layer.h"
#include "support/open_descriptors.h"
#include "support/test_support.h"

namespace qln::test {

namespace fs = std::filesystem;

inline constexpr char kSection[] = "Tarnwick\\MetaData\\Default";
inline constexpr std::pair<const char*, const char*> kFaults[] = {
    {"allocate", "ENOMEM"}, {"allocate", "ENOMEM+"}, {"open", "EIO"},     {"open", "EMFILE"},
    {"read", "EIO"},        {"read", "EINTR"},       {"read", "short"},   {"write", "EIO"},
    {"write", "ENOSPC+"},   {"write", "EDQUOT"},     {"write", "EINTR"},  {"write", "short"},
    {"sync", "EIO"},        {"rename", "ENOSPC"},    {"truncate", "EIO"}, {"unlink", "EIO"},
    {"status", "EIO"},      {"other", "EIO"},        {"map", "ENOMEM"},   {"clock", "EINVAL"}};

class LibraryFaults : public testing::Test {
 protected:
  void SetUp() override {
    // Each run flushes what it writes: in memory, where there is such a folder.
    const bool memory = access("/dev/shm", W_OK) == 0;
    std::string name = (memory ? "/dev/shm/" : testing::TempDir()) + "library-faultsXXXXXX";
    ASSERT_NE(mkdtemp(name.data()), nullptr);
    folder_ = name;
    if (memory) setenv("TMPDIR", "/dev/shm", 1);
  }
  void TearDown() override {
    kxCFGSetDefaultStore(nullptr);
    fs::remove_all(folder_);
  }
  std::string PathOf(const char* name) const { return folder_ / name; }

  // Calls `prepare` and, with a fault, `work`; then `judge` with whether the fault came about. For each
  // fault, of each call.
  void ForEachFault(const std::function<void()>& prepare, const std::function<void()>& work,
                    const std::function<void(bool)>& judge) {
    MessageCapture capture;
    prepare();
    work();  // what is made once for a process is made now
    judge(false);
    for (const auto& [group, effect] : kFaults) {
      uint64_t step = 1;
      for (uint64_t at = 1;; at += step) {
        SCOPED_TRACE(std::string(group) + " " + effect + " " + std::to_string(at));
        prepare();
        capture.clear();
        const size_t descriptors = OpenDescriptors().size();
        ASSERT_NE(qlnFaultArm(group, effect, at), 0);
        work();
        const uint64_t calls = qlnFaultDisarm();
        const bool isMemory = std::string_view(group) == "allocate";
        if (at == 1 && isMemory && std::getenv("QLN_EVERY_FAULT") == nullptr) step = 1 + calls / kSample;
        const bool fired = qlnFaultFired() != 0;
        judge(fired);
        EXPECT_LE(OpenDescriptors().size(), descriptors + kKept);
        if (!fired || at > calls || HasFailure()) break;
        ++runs_;
      }
      if (HasFailure()) return;
    }
    RecordProperty("runs", static_cast<int>(runs_));
  }

  // So many allocations, where QLN_EVERY_FAULT does not ask for all; of the other calls there are fewer.
  static constexpr uint64_t kSample = 8;
  // One store that is kept open between calls.
  static constexpr size_t kKept = 1;
  fs::path folder_;
  uint64_t runs_ = 0;
};

inline std::string TextIn(KXConfigHandle store, const char* key) {
  char text[64] = {};
  uint32_t size = sizeof text;
  return kxCFGValueString(store, kSection, key, text, &size, KX_CONFIG_READ) == 0 ? text : "absent";
}

}  // namespace qln::test

#endif
