// Any text as a command's JSON, into a record of the default size; and the short way for texts of the
// writer's shape against the tokenizer: the same tokens.

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "kxutil/kxutil.h"
#include "qlnutil/mediacmd.h"
#include "qlnutil/mediacmd/command_json.h"
#include "qlnutil/mediacmd/json_shape.h"

namespace {
void Drop(uint32_t, const char*, void*) {}

void CompareTokens(const char* text, size_t size) {
  constexpr int kRoom = 100;
  // Without a byte behind it.
  const std::unique_ptr<char[]> exact(new char[size]);
  if (size != 0) std::memcpy(exact.get(), text, size);
  jsmntok_t tokens[kRoom];
  const int count = qln::TokensOfWrittenShape({exact.get(), size}, tokens, kRoom);
  if (count == qln::kOtherShape) return;
  jsmntok_t expected[kRoom];
  jsmn_parser parser;
  jsmn_init(&parser);
  if (jsmn_parse(&parser, exact.get(), size, expected, kRoom) != count) std::abort();
  for (int i = 0; i < count; ++i) {
    if (tokens[i].type != expected[i].type || tokens[i].start != expected[i].start ||
        tokens[i].end != expected[i].end || tokens[i].size != expected[i].size)
      std::abort();
  }
}
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  kxSetDiagnosticSink(Drop, nullptr);
  const std::unique_ptr<char[]> text(new char[size + 1]);
  if (size != 0) std::memcpy(text.get(), data, size);
  text[size] = '\0';

  CompareTokens(text.get(), std::strlen(text.get()));
  const std::unique_ptr<MediaCmd> command(new MediaCmd);
  initMediaCmd(command.get(), ctStop);
  const std::unique_ptr<MediaCmd> before(new MediaCmd(*command));
  const int32_t result = qln::MediaCmdFromJSON(command.get(), nullptr, text.get());
  if (result < -2 || result > 1) std::abort();
  if (result != 0 && std::memcmp(command.get(), before.get(), sizeof *before) != 0) std::abort();
  return 0;
}
