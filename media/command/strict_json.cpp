// Emits the walk over a command into a JSON tree.

#include "command/strict_json.h"

#include <new>
#include <nlohmann/json.hpp>
#include <string_view>

#include "kxutil/kxutil.h"
#include "kxutil/utf8_text.h"
#include "qlnutil/mediacmd/command_walk.h"

namespace qlnmedia {

namespace {

using Json = nlohmann::ordered_json;

std::string TextOf(std::string_view bytes) {
  if (qln::IsUtf8(bytes)) return std::string(bytes);
  std::string text;
  for (const char c : bytes) {
    const auto byte = static_cast<uint8_t>(c);
    if (byte >= 0x80) text += static_cast<char>(0xC0 | byte >> 6);
    text += byte >= 0x80 ? static_cast<char>(0x80 | (byte & 0x3F)) : c;
  }
  return text;
}

class StrictEmitter {
 public:
  static constexpr bool kShuttleBesideSpeed = false;

  explicit StrictEmitter(Json& members) : members_(members) {}

  void Link(std::string_view name, const void* pointer) {
    members_[std::string(name)] = static_cast<int32_t>(reinterpret_cast<uintptr_t>(pointer));
  }
  void Number(std::string_view name, int32_t value) {
    members_[std::string(name)] = static_cast<uint32_t>(value);
  }
  void BeginWord(std::string_view name, int32_t value, std::string_view text) {
    begun_ = &(members_[std::string(name)] = Json{{"Value", value}, {"String", TextOf(text)}});
  }
  void BeginTimecode(std::string_view name, int32_t value, std::string_view type, std::string_view text) {
    if (type.empty()) type = qln::TcTypeWord(qln::kTcDropFrame);
    begun_ = &(members_[std::string(name)] = Json{
                   {"Value", static_cast<uint32_t>(value)}, {"TcType", type}, {"TcString", TextOf(text)}});
  }
  void BeginValue(std::string_view name, int32_t value) {
    begun_ = &(members_[std::string(name)] = Json{{"Value", static_cast<uint32_t>(value)}});
  }
  void Flag(std::string_view name) { (*begun_)[std::string(name)] = 1; }
  void End() {}
  void EndValue() {}

  void Text(std::string_view name, std::string_view text) { members_[std::string(name)] = TextOf(text); }
  void AddressNumber(std::string_view, std::string_view shortName, int32_t value) {
    members_[std::string(shortName)] = static_cast<uint32_t>(value);
  }
  void Binary(bool isBase64, int64_t length, std::string_view text) {
    members_["arbID"] = Json{{"Type", isBase64 ? "base64" : "hex"},
                             {"length", length},
                             {isBase64 ? "Value" : "String", TextOf(text)}};
  }
  void WarnLongText() { Warn("ClipID"); }
  void WarnFileName() { Warn("FileName"); }

 private:
  static void Warn(const char* what) {
    ErrFmtOut(KX_SEVERITY_WARNING, 0, 0, "a text without an end is left out: %s\n", what);
  }

  Json& members_;
  Json* begun_ = nullptr;
};

}  // namespace

std::string StrictCommandJson(MediaCmd& command, uint8_t timecodeType) {
  Json members = Json::object();
  StrictEmitter emitter(members);
  if (!qln::CommandWalk(command, timecodeType, emitter).Run()) throw std::bad_alloc();
  return Json{{"MediaCmd", std::move(members)}}.dump(2);
}

}  // namespace qlnmedia
