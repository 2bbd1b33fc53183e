// A program that keeps settings and a project by the library, for tests that kill it or cut its power.
//
//   settings_host write store|file|project PATH FIRST COUNT   counts up, and says each number that is kept
//   settings_host check    answers each line "store|file|project PATH" with one: the number, "absent" or
//   "torn", and what
//                          the library said; "?" in front of it where the next number could not be kept
//   settings_host spin write|read PATH SECONDS WRITER COUNT   writes as that writer, or reads what COUNT
//   writers write, and
//                          says how many changes or reads it made and how many milliseconds the longest took

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <optional>
#include <string>
#include <vector>

#include "kxutil/kxutil.h"
#include "qlnutil/kxprojecttoxml.h"

namespace {

constexpr char kSection[] = "Tarnwick\\Test";
constexpr char kNumber[] = "Count";
constexpr char kText[] = "Text";

// A text that goes with the number, of many sizes.
std::string TextFor(const std::string& kind, uint32_t number) {
  const size_t longest = kind == "project" ? 250 : 9000;
  return std::string(1 + number * 7919u % longest, static_cast<char>('a' + number % 26));
}

bool WriteStore(KXConfigHandle store, uint32_t number, std::string text) {
  return kxCFGBegin(store) == 0 && kxCFGValueDword(store, kSection, kNumber, &number, KX_CONFIG_WRITE) == 0 &&
         kxCFGValueString(store, kSection, kText, text.data(), nullptr, KX_CONFIG_WRITE) == 0 &&
         kxCFGEnd(store) == 0;
}

bool Write(const std::string& kind, const std::string& path, uint32_t number) {
  const std::string text = TextFor(kind, number);
  if (kind == "store") {
    kxCFGSetDefaultStore(path.c_str());
    return WriteStore(KX_DEFAULT_STORE, number, text);
  }
  if (kind == "file") {
    const KXConfigHandle store = kxCFGOpen(path.c_str(), KX_CONFIG_OPEN);
    if (store == 0) return false;
    const bool written = WriteStore(store, number, text);
    return kxCFGClose(store, written ? KX_CONFIG_SAVE : KX_CONFIG_DISCARD) == 0 && written;
  }
  CKXProjectToXML project;
  project.SetXMLName(path.c_str());
  project.SetConfigDWORD(kNumber, number);
  project.SetConfigString(kText, text.c_str());
  return project.SaveXMLFile() != 0;
}

struct Found {
  std::optional<uint32_t> number;
  std::string text;
};

Found ReadStore(KXConfigHandle store) {
  Found found;
  uint32_t number = 0;
  if (kxCFGValueDword(store, kSection, kNumber, &number, KX_CONFIG_READ) == 0) found.number = number;
  char text[16384] = "";
  uint32_t size = sizeof text;
  if (kxCFGValueString(store, kSection, kText, text, &size, KX_CONFIG_READ) == 0) found.text = text;
  return found;
}

Found Read(const std::string& kind, const std::string& path) {
  Found found;
  if (kind == "store") {
    kxCFGSetDefaultStore(path.c_str());
    return ReadStore(KX_DEFAULT_STORE);
  }
  if (access(path.c_str(), F_OK) != 0) return found;
  if (kind == "file") {
    const KXConfigHandle store = kxCFGOpen(path.c_str(), KX_CONFIG_OPEN);
    if (store == 0) return {0, "unreadable"};
    found = ReadStore(store);
    kxCFGClose(store, KX_CONFIG_DISCARD);
    return found;
  }
  CKXProjectToXML project;
  if (project.LoadXMLFile(path.c_str()) == 0) return {0, "unreadable"};
  char text[KX_PATH_SIZE] = "";
  project.GetConfigString(kText, text);
  found.text = text;
  if (!found.text.empty()) found.number = project.GetConfigDWORD(kNumber);
  return found;
}

void Hear(uint32_t, const char* text, void* context) { *static_cast<std::string*>(context) += text; }

std::string Answer(const std::string& kind, const std::string& path) {
  std::string said;
  kxSetDiagnosticSink(Hear, &said);
  // What is known of a file of that name is of one that was there before.
  kxCFGSetDefaultStore("/nonexistent");
  const Found found = Read(kind, path);
  const bool whole = found.number && found.text == TextFor(kind, *found.number);
  const std::string number = whole ? std::to_string(*found.number) : "torn";
  const uint32_t next = found.number.value_or(0) + 1;
  const bool goesOn = Write(kind, path, next) && Read(kind, path).number == next;
  kxSetDiagnosticSink(nullptr, nullptr);
  for (char& c : said)
    if (c == '\n') c = ' ';
  return (goesOn ? "" : "?") + (found.number || !found.text.empty() ? number : "absent") + " " + said;
}

int CheckAll() {
  for (std::string line; std::getline(std::cin, line);) {
    const size_t blank = line.find(' ');
    std::cout << Answer(line.substr(0, blank), line.substr(blank + 1)) << std::endl;
  }
  return 0;
}

int CountUp(const std::string& kind, const std::string& path, uint32_t first, uint32_t count) {
  for (uint32_t number = first; number < first + count; ++number) {
    if (!Write(kind, path, number)) return 1;
    const std::string line = std::to_string(number) + "\n";
    if (write(STDOUT_FILENO, line.data(), line.size()) < 0) return 1;
  }
  return 0;
}

// "number:text" of a writer; the text goes with the number.
bool IsWhole(const std::string& value, uint32_t& number) {
  number = static_cast<uint32_t>(std::atoi(value.c_str()));
  return value == std::to_string(number) + ":" + TextFor("store", number);
}

bool WriteNext(const std::string& key, uint32_t number) {
  std::string value = std::to_string(number) + ":" + TextFor("store", number);
  return kxCFGValueString(KX_DEFAULT_STORE, kSection, key.c_str(), value.data(), nullptr, KX_CONFIG_WRITE) ==
         0;
}

// What a writer has written never goes back.
bool ReadNext(const std::string& key, uint32_t& least) {
  char text[16384] = "";
  uint32_t size = sizeof text;
  if (kxCFGValueString(KX_DEFAULT_STORE, kSection, key.c_str(), text, &size, KX_CONFIG_READ) != 0)
    return least == 0;
  uint32_t number = 0;
  if (!IsWhole(text, number) || number < least) return false;
  least = number;
  return true;
}

int Spin(bool writes, const std::string& path, int seconds, uint32_t writer, uint32_t writers) {
  using Clock = std::chrono::steady_clock;
  kxCFGSetDefaultStore(path.c_str());
  std::vector<uint32_t> seen(writers, 0);
  uint32_t calls = 0;
  Clock::duration longest{};
  const auto keyOf = [](uint32_t number) { return "Writer" + std::to_string(number); };
  for (const auto end = Clock::now() + std::chrono::seconds(seconds); Clock::now() < end; ++calls) {
    const auto begin = Clock::now();
    const uint32_t other = calls % writers;
    if (writes ? !WriteNext(keyOf(writer), calls + 1) : !ReadNext(keyOf(other), seen[other])) {
      std::cout << "failed at " << calls << std::endl;
      return 1;
    }
    longest = std::max(longest, Clock::now() - begin);
  }
  // The last change of this writer is there, whatever the others did.
  uint32_t last = calls;
  const bool kept = !writes || calls == 0 || (ReadNext(keyOf(writer), last) && last == calls);
  std::cout << calls << " " << std::chrono::duration_cast<std::chrono::milliseconds>(longest).count()
            << std::endl;
  return kept ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc == 2 && std::strcmp(argv[1], "check") == 0) return CheckAll();
  const auto number = [argv](int i) { return static_cast<uint32_t>(std::atoi(argv[i])); };
  if (argc == 7 && std::strcmp(argv[1], "spin") == 0)
    return Spin(std::strcmp(argv[2], "write") == 0, argv[3], std::atoi(argv[4]), number(5), number(6));
  if (argc != 6) return 2;
  return CountUp(argv[2], argv[3], number(4), number(5));
}
