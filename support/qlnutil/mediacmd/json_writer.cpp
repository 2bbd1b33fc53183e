// Writes a command as JSON text: the emitter of the JSON form.

#include "kxutil/kxutil.h"
#include "qlnutil/mediacmd/command_json.h"
#include "qlnutil/mediacmd/command_walk.h"
#include "qlnutil/mediacmd/text_buffer.h"

namespace qln {
namespace {

class JsonEmitter {
 public:
  static constexpr bool kShuttleBesideSpeed = false;

  explicit JsonEmitter(TextBuffer& out) : out_(out) {}

  void Link(std::string_view name, const void* pointer) {
    const int32_t low = static_cast<int32_t>(reinterpret_cast<uintptr_t>(pointer));
    out_.Append('"', name, "\":", low, ',');
  }
  void Number(std::string_view name, int32_t value) {
    out_.Append('"', name, "\":", static_cast<uint32_t>(value), ',');
  }
  void BeginWord(std::string_view name, int32_t value, std::string_view text) {
    out_.Append('"', name, "\": {\"Value\":", value, ",\"String\":\"", text, "\",");
  }
  void BeginTimecode(std::string_view name, int32_t value, std::string_view type, std::string_view text) {
    if (type.empty()) type = TcTypeWord(kTcDropFrame);
    out_.Append('"', name, "\": {\"Value\":", static_cast<uint32_t>(value), ",\"TcType\":\"", type,
                "\",\"TcString\":\"", text, "\",");
  }
  void BeginValue(std::string_view name, int32_t value) {
    out_.Append('"', name, "\": {\"Value\":", static_cast<uint32_t>(value), ',');
  }
  void Flag(std::string_view name) { out_.Append('"', name, "\":1,"); }
  void End() { out_.Append("},"); }
  // Without a comma: readers of this form expect it so.
  void EndValue() { out_.Append('}'); }

  void Text(std::string_view name, std::string_view text) { out_.Append('"', name, "\":\"", text, "\","); }
  void AddressNumber(std::string_view, std::string_view shortName, int32_t value) {
    out_.Append('"', shortName, "\": ", static_cast<uint32_t>(value), ',');
  }
  void Binary(bool isBase64, int64_t length, std::string_view text) {
    const std::string_view type = isBase64 ? "base64" : "hex";
    const std::string_view key = isBase64 ? "Value" : "String";
    out_.Append("\"arbID\": {\"Type\":\"", type, "\",\"length\":", length, ",\"", key, "\":\"", text,
                "\",},");
  }
  void WarnLongText() { Warn("Exception: MediaCmdToJSON() "); }
  void WarnFileName() { Warn("Exception:  MediaCmdToJSON(ClipID) "); }

 private:
  static void Warn(const char* what) {
    ErrFmtOut(KX_SEVERITY_WARNING, 0, 0, "WARNING(JSONmCmd): %s\n", what);
  }
  TextBuffer& out_;
};

}  // namespace

uint32_t MediaCmdToJSON(char** text, MediaCmd* command, uint32_t tcType) {
  if (text != nullptr) *text = nullptr;
  if (command == nullptr) return 0;
  TextBuffer out;
  JsonEmitter emitter(out);
  out.Append("{\"MediaCmd\" : {");
  const bool isComplete = CommandWalk(*command, static_cast<uint8_t>(tcType), emitter).Run();
  out.Append("}}");
  if (text != nullptr && isComplete) *text = out.ToBlock();
  return 0;
}

}  // namespace qln
