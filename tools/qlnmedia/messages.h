// The diagnostics of the libraries, caught instead of printed, so that a command can show them where they
// belong.
#ifndef TOOLS_QLNMEDIA_MESSAGES_H
#define TOOLS_QLNMEDIA_MESSAGES_H

#include <cstdint>
#include <string>
#include <vector>

namespace qlnmedia {

struct LibraryMessage {
  uint32_t severity;  // KX_SEVERITY_ values
  std::string text;   // one line, without the source location at its end
};

// Receives everything that the library says while it lives. One at a time.
class MessageSink {
 public:
  MessageSink();
  ~MessageSink();
  MessageSink(const MessageSink&) = delete;
  MessageSink& operator=(const MessageSink&) = delete;

  // What was said since the last call, the same line not twice in a row; debug prints left out.
  std::vector<LibraryMessage> Take();

 private:
  static void Receive(uint32_t severity, const char* text, void* context);
  std::vector<LibraryMessage> messages_;
};

// A diagnostic as one line: line feeds to blanks, the trailing source path and line number taken off.
std::string MessageLine(const std::string& text);

}  // namespace qlnmedia

#endif
