// Catches the diagnostics of the library.

#include "base/library_messages.h"

#include <cctype>
#include <new>
#include <utility>

#include "kxutil/kxutil.h"

namespace qlnmedia {

namespace {
// A stream may make the library say the same thing once a frame; nobody reads more than this.
constexpr size_t kMostMessages = 1000;
}  // namespace

MessageSink::MessageSink() { kxSetThreadDiagnosticSink(Receive, this, &previousSink_, &previousContext_); }
MessageSink::~MessageSink() { kxSetThreadDiagnosticSink(previousSink_, previousContext_, nullptr, nullptr); }

void MessageSink::Receive(uint32_t severity, const char* text, void* context) {
  MessageSink& sink = *static_cast<MessageSink*>(context);
  if (severity == KX_SEVERITY_DEBUG || sink.messages_.size() >= kMostMessages) return;
  // The library is in the middle of a call, and lets nothing through.
  try {
    std::string line = MessageLine(text);
    if (!sink.messages_.empty() && sink.messages_.back().text == line) return;
    sink.messages_.push_back({severity, std::move(line)});
  } catch (const std::bad_alloc&) {
  }
}

std::vector<LibraryMessage> MessageSink::Take() { return std::exchange(messages_, {}); }

std::string MessageLine(const std::string& text) {
  std::string line;
  for (const char c : text) {
    if (c == '\n' || c == '\r' || c == '\t') {
      if (!line.empty() && line.back() != ' ') line += ' ';
    } else {
      line += c;
    }
  }
  static const std::string kLocation = " support/qlnutil/qlnvidutil ";
  const size_t at = line.rfind(kLocation);
  if (at != std::string::npos) {
    bool numberOnly = at + kLocation.size() < line.size();
    for (size_t i = at + kLocation.size(); i < line.size(); ++i)
      numberOnly = numberOnly && std::isdigit(static_cast<unsigned char>(line[i])) != 0;
    if (numberOnly) line.erase(at);
  }
  while (!line.empty() && line.back() == ' ') line.pop_back();
  return line;
}

}  // namespace qlnmedia
