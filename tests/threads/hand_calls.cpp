// One of each, with arguments of which the tests of their folders say what comes out.

#include "threads/hand_calls.h"

#include <cstdio>
#include <cstring>
#include <new>
#include <type_traits>
#include <vector>

#define JSMN_HEADER
#include <jsmn.h>

#include "kxutil/kxutil.h"
#include "qlnutil/kxdiskcache.h"
#include "qlnutil/kxprojecttoxml.h"
#include "qlnutil/mediacmd.h"
#include "qlnutil/qlnformat.h"
#include "qlnutil/qlnh264.h"
#include "qlnutil/qlnhevc.h"
#include "qlnutil/qlninband.h"
#include "qlnutil/qlninfo.h"
#include "qlnutil/qlntransport.h"
#include "qlnutil/qlntransport_position.h"

namespace qln::test {
namespace {

class Answers {
 public:
  template <typename Number>
  requires std::is_arithmetic_v<Number>
  void Add(Number number) { text_ += std::to_string(number) + " "; }
  void Add(const char* text) { text_.append(text != nullptr ? text : "none").append(" "); }
  std::string text() const { return text_; }

 private:
  std::string text_;
};

void AddFormats(Answers& answers, uint32_t n) {
  const auto format = static_cast<QLNSignalFormat>(n * 0x01010101u);
  uint32_t rate = 30000 + n, scale = 1001;
  answers.Add(vidRateScale(format, &rate, &scale));
  answers.Add(vidNormalizeRateScale(&rate, &scale));
  answers.Add(vidRateScaleFromSize(720 + n, 576, &rate, &scale));
  answers.Add(rate);
  answers.Add(vidFramesPerSecD(format, rate, scale));
  answers.Add(vidMsPerFrame(format, rate, scale));
  answers.Add(vidMsPerFrameD(format, rate, scale));
  answers.Add(vidTCFramesPerSecD(n));
  answers.Add(vidTCMsPerFrame(n));
  answers.Add(vidTCMsPerFrameD(n));
  answers.Add(vidGetTCType(n));
  answers.Add(static_cast<uint32_t>(vidGetSignalFormat(rate, scale, 1920, 1080, n & 1)));
  char text[64] = "";
  answers.Add(vidSignalFormatToStr20(format, text));
  answers.Add(text);
  answers.Add(vidGetTokenFromSize(vidGetSizeFromToken(n)));
  answers.Add(vidGetTCTypeSignalFormat(format));
  answers.Add(vidGetFPSTCTypeSignalFormat(format));
  QLNVid video = {};
  answers.Add(vidSignalFormatToQLNVid(format, &video));
  answers.Add(vidGetAspectRatio(&video));
  uint32_t width = 0, height = 0;
  answers.Add(vidImageSize(format, &width, &height, n & 1));
  answers.Add(width * height);
  uint32_t timecode = 90000 + n;
  vidConvertTC(&timecode, n % 4, 30000, 1001);
  answers.Add(timecode);
  answers.Add(qlnutilCodecTypeString(0x31637661u + n));
  answers.Add(qlnutilFileTypeString(static_cast<int32_t>(n)));
}

void AddFourccs(Answers& answers, uint32_t n) {
  constexpr int32_t (*kClasses[])(uint32_t) = {
      fccIsDv25,    fccIsDv50,  fccIsDv100,  fccIsJpeg,        fccIsAvidJpeg, fccIsAvidJfif,
      fccIsXAVC,    fccIsAVCi,  fccIsDPX,    fccIsDolbyVision, fccIsHEVC,     fccIsh264,
      fccIsHDCamSR, fccIsBayer, fccIsRawRGB, fccIsYCbCr10,     fccIsYCbCr8,   fccIs8BitD1YUV};
  constexpr char kCodes[] = "avc1hvc1dvheAVdnDpx dv5nmjpgv210yuv2";
  for (size_t at = 0; at + 4 < sizeof kCodes; at += 4) {
    uint32_t code = 0;
    std::memcpy(&code, kCodes + at, 4);
    for (const auto& isOne : kClasses) answers.Add(isOne(code + n / 16));
    answers.Add(fourccToLower(code) ^ fourccToUpper(code));
  }
}

void AddSmallOnes(Answers& answers, uint32_t n) {
  uint32_t left = 0, counter = n;
  answers.Add(findChannel(0xF0F0 + n, &left, 2));
  answers.Add(isolateChannel(0xF0F0 + n, 1));
  answers.Add(totalChannels(0xF0F0 + n));
  answers.Add(speedRate(static_cast<int32_t>(n) * 1000));
  {
    const std::lock_guard<std::mutex> lock(SpeedRun());
    speedReps(&counter, static_cast<int32_t>(n) * 1000);
  }
  char word[256] = "";
  uint32_t value = 0;
  answers.Add(cfToString(1u << n % 32, word));
  answers.Add(cfFromString(word, &value));
  answers.Add(gsToString(n, word));
  answers.Add(gsFromString(word, &value));
  answers.Add(value);
  answers.Add(MulDiv(static_cast<int32_t>(n), 1001, 1000));
  char drive[KX_DRIVE_SIZE], directory[KX_DIRECTORY_SIZE], name[KX_NAME_SIZE], extension[KX_EXTENSION_SIZE];
  kxOSSplitPath("C:\\clips\\day\\one.mov", drive, directory, name, extension);
  char path[KX_PATH_SIZE] = "";
  kxOSMakePath(path, drive, directory, name, extension);
  answers.Add(path);
  char encoded[64] = "";
  uint32_t size = sizeof encoded;
  answers.Add(base64_encode(&n, sizeof n, &size, encoded));
  answers.Add(encoded);
  jsmn_parser parser;
  jsmntok_t tokens[8];
  constexpr char kJson[] = R"({"a": [1, 2]})";
  jsmn_init(&parser);
  answers.Add(jsmn_parse(&parser, kJson, sizeof kJson - 1, tokens, 8));
  uint8_t marker[256] = {};
  answers.Add(qlnUtilAddSeiATC(marker, static_cast<uint8_t>(n)));
  answers.Add(static_cast<uint32_t>(marker[0]));
  answers.Add(qlnutilWrite_SliceHeader(nullptr, nullptr, nullptr, nullptr, 1, 0));
  answers.Add(qlnutilGetHvcc());
  answers.Add(XMLFromQLNAudio() + XMLFromQLNInfo() + XMLFromQLNSystem() + XMLFromQLNVideo());
  char description[256] = "";
  answers.Add(qlnInfoGetDescription(n % 100, description));
  answers.Add(description);
}

// Memory, and messages to a sink of this thread alone.
void AddMemoryAndMessages(Answers& answers, uint32_t n) {
  char* const block = static_cast<char*>(KXAlloc(n + 8));
  char copy[8] = "";
  ZeroMemoryFast(block, n + 8);
  CopyMemoryFast(block, "abcdefg", 7);
  kxOSCopyMemory(copy, block, 8);
  answers.Add(copy);
  kxOSZeroMemory(copy, sizeof copy);
  answers.Add(copy);
  answers.Add(KXAllocSize(block));
  KXFree(block);
  std::string said;
  const auto hear = [](uint32_t severity, const char* text, void* context) {
    *static_cast<std::string*>(context) += std::to_string(severity) + text;
  };
  KXDiagnosticSink sink = nullptr;
  void* context = nullptr;
  kxSetThreadDiagnosticSink(hear, &said, &sink, &context);
  ErrOut("number %u", n);
  ErrFmtOut(KX_SEVERITY_WARNING, 0, 0, "number %u", n);
  OutputDebugStringA("text");
  MediaCmd command;
  initMediaCmd(&command, ctPlay);
  __dbgout_mediacmd(&command);
  __dbgout_tc(n, 0);
  kxSetThreadDiagnosticSink(sink, context, nullptr, nullptr);
  answers.Add(said.c_str());
}

class OpenPosition : public CQLNPos {
 public:
  int32_t Normal() {
    Normalize();
    return floor();
  }
};

class OpenCounter : public CQLNTransTC {
 public:
  using CQLNTransTC::operator=;
  int32_t Folded() {
    Modulo();
    return PlayCount();
  }
};

void AddSpeedsAndPositions(Answers& answers, uint32_t n) {
  CQLNSpeed speed;
  speed.Set(static_cast<int32_t>(n) * 700);
  answers.Add(speed.Abs() + speed.Whole() + speed.Frac() + speed.Fractionalize());
  speed.Set(-static_cast<int32_t>(n), 3);
  answers.Add(speed.Double());
  speed = 0.25 * n;
  answers.Add(speed.Get());
  CQLNPos position(speed);
  position.Set(speed);
  position.Set(static_cast<int32_t>(n), 2);
  position = speed;
  answers.Add(OpenPosition().Normal());
  OpenCounter counter;
  counter.SetRange(5, 50);
  counter = static_cast<int32_t>(n);
  counter = position;
  counter = speed;
  CQLNPos shown;
  counter.GetCPos(shown);
  CQLNSpeed shownSpeed;
  counter.GetCSpeed(shownSpeed);
  int16_t small = 0;
  uint16_t unsignedSmall = 0;
  int32_t whole = 0;
  counter.SetTC(position);
  answers.Add(counter.GetTC() + counter.GetTC(small) + counter.GetTC(unsignedSmall) + counter.GetTC(whole));
  answers.Add(counter.Folded() + shown.floor() + shownSpeed.Get());
}

// A program of transport calls.
void AddTransport(Answers& answers, uint32_t n) {
  CQLNSpeed speed(static_cast<int32_t>(n), 1);
  speed = CQLNSpeed(1) /* normal speed */;
  CQLNPos position(static_cast<int32_t>(n), 3);
  CQLNPos other;
  other = position;
  other.SetAsFrac(static_cast<int32_t>(n), 7);
  answers.Add(other.floor() + position.ceil());
  answers.Add(other.frac() + position.fracbar());
  answers.Add(int{position.IsNeg()} + 2 * int{position.IsPlus()} + 4 * int{position.IsZero()});
  CQLNTransTC counter;
  counter.SetRange(0, 100);
  counter.SetSpeed(speed);
  counter.SetTC(static_cast<int32_t>(n));
  ++counter;
  --counter;
  counter += 7;
  counter -= 2;
  CQLNTransTC second;
  second = counter;
  uint32_t count = 0;
  answers.Add(second.GetTC(count));
  answers.Add(count + static_cast<uint32_t>(counter.GetIn() + counter.GetOut() + counter.GetDur()));
  answers.Add(counter.GetIndex() + counter.GetLSpeed());
  CQLNTransTC2 clip;
  clip.SetTCLimit(50);
  clip.SetClipTCLimit(20);
  clip.SetSpeedZero(speed);
  clip.SetClipTC(static_cast<int32_t>(n % 20));
  answers.Add(clip.GetClipTC() + clip.In() + clip.Out() + clip.GetRepeat() + clip.GetLastPlayCount());
  answers.Add(clip.GetIndex());
}

bool KeepsSettings(KXConfigHandle store, const std::string& key, uint32_t number) {
  char text[32];
  std::snprintf(text, sizeof text, "text %u", number);
  uint32_t read = 0;
  char readText[64] = "";
  uint32_t size = sizeof readText;
  constexpr char kSection[] = "Tarnwick\\Threads";
  return kxCFGBegin(store) == 0 &&
         kxCFGValueDword(store, kSection, key.c_str(), &number, KX_CONFIG_WRITE) == 0 &&
         kxCFGValueString(store, kSection, (key + "t").c_str(), text, nullptr, KX_CONFIG_WRITE) == 0 &&
         kxCFGEnd(store) == 0 && kxCFGValueDword(store, kSection, key.c_str(), &read, KX_CONFIG_READ) == 0 &&
         read == number &&
         kxCFGValueString(store, kSection, (key + "t").c_str(), readText, &size, KX_CONFIG_READ) == 0 &&
         std::strcmp(readText, text) == 0 && kxCFGDeleteValue(store, kSection, (key + "t").c_str()) == 0;
}

bool KeepsClipInformation(KXConfigHandle store) {
  QLNInfo info = {}, copy = {};
  info.Title = static_cast<char*>(KXAlloc(5));
  std::memcpy(info.Title, "Dawn", 5);
  const bool copied = qlnInfoSet(&copy, &info) != 0 || copy.Title != nullptr;
  qlnInfoWriteRegSet(store, &info);
  qlnInfoDelete(&info);
  qlnInfoReadRegSet(store, &info);
  const bool read = info.Title != nullptr && std::strcmp(info.Title, "Dawn") == 0;
  qlnInfoDelete(&info);
  qlnInfoDelete(&copy);
  // The default store and the user's file, which all threads share: whatever stands there by then.
  qlnInfoReadReg(&copy, 1, 0);
  qlnInfoWriteReg(&copy, 1, 0);
  qlnInfoDelete(&copy);
  return copied && read;
}

bool KeepsAProject(const std::string& path, uint32_t number) {
  CKXProjectToXML project;
  project.SetXMLName(path.c_str());
  project.SetClipFile("/nonexistent/clip.mov");
  project.SetEDLName("/nonexistent/list.edl");
  project.SetConfigDWORD("Count", number);
  project.SetConfigString("Text", "kept");
  // A copy shares the document, and must not free it as well.
  alignas(CKXProjectToXML) unsigned char room[sizeof(CKXProjectToXML)];
  CKXProjectToXML& copy = *new (room) CKXProjectToXML(project);
  copy = project;
  char text[KX_PATH_SIZE] = "";
  copy.GetXMLName(text);
  copy.GetClipFile(text);
  copy.GetEDLName(text);
  if (copy.SaveXMLFile() == 0) return false;
  CKXProjectToXML read;
  return read.LoadXMLFile(path.c_str()) != 0 && read.GetConfigDWORD("Count") == number &&
         read.GetConfigString("Text", text) == 0 && std::strcmp(text, "kept") == 0;
}

bool KeepsAFile(const std::string& path, uint32_t number) {
  std::remove(path.c_str());
  KXFileHandle file =
      kxOSCreateFile(path.c_str(), KX_ACCESS_WRITE, KX_SHARE_READ, nullptr, KX_CREATE_NEW, 0, nullptr);
  if (file == KX_INVALID_FILE_HANDLE) return false;
  const std::vector<uint32_t> words(5000, number);
  const auto size = static_cast<uint32_t>(words.size() * sizeof words[0]);
  uint32_t written = 0;
  kxOSWriteFile(file, words.data(), size, &written, nullptr);
  kxOSCloseFile(file);
  file = kxOSCreateFile(path.c_str(), KX_ACCESS_READ, KX_SHARE_READ, nullptr, KX_OPEN_EXISTING, 0, nullptr);
  if (file == KX_INVALID_FILE_HANDLE) return false;
  uint32_t first = 0, cached = 0, got = 0;
  uint64_t whole = 0;
  kxOSSeek(file, 400);
  kxOSReadFile(file, &first, sizeof first, &got, nullptr);
  kxOSGetFileSizeEx(file, &whole);
  CKXDiskCache cache;
  cache.SetHandleAndCacheSize(file, 4096, false);
  // A copy shares the window, and must not free it as well.
  alignas(CKXDiskCache) unsigned char room[sizeof(CKXDiskCache)];
  *new (room) CKXDiskCache(cache) = cache;
  const uint32_t result = cache.Read(&cached, 8000, sizeof cached, &got, 0);
  const bool same =
      whole == size && kxOSGetFileSize(file, nullptr) == size && kxOSFileExists(path.c_str()) != 0;
  kxOSCloseFile(file);
  kxOSGetLastError();
  kxOSGetMs();
  Sleep(0);
  return same && written == size && first == number && result == 0 && cached == number;
}

}  // namespace

std::mutex& SpeedRun() {
  static std::mutex mutex;
  return mutex;
}

std::string PureCalls() {
  Answers answers;
  for (uint32_t n = 0; n < 16; ++n) {
    AddFormats(answers, n);
    AddFourccs(answers, n);
    AddSmallOnes(answers, n);
    AddMemoryAndMessages(answers, n);
    AddSpeedsAndPositions(answers, n);
    AddTransport(answers, n);
  }
  return answers.text();
}

bool KeepingCalls(const std::string& folder, uint32_t thread) {
  const std::string own = folder + "/" + std::to_string(thread);
  GetMatrixBySize(1920, 1080, 0);
  const KXConfigHandle store = kxCFGOpen((own + ".xml").c_str(), KX_CONFIG_OPEN);
  if (store == 0) return false;
  bool kept = KeepsSettings(store, "Key", thread) && KeepsClipInformation(store);
  kept = kxCFGClose(store, KX_CONFIG_SAVE) == 0 && kept;
  return kept && KeepsSettings(KX_DEFAULT_STORE, "Key" + std::to_string(thread), thread) &&
         KeepsAProject(own + ".project.xml", thread) && KeepsAFile(own + ".bytes", thread);
}

}  // namespace qln::test
