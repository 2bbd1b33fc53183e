// The diagnostics of the libraries, caught instead of printed, so that a command can show them where they
// belong.
#ifndef MEDIA_BASE_LIBRARY_MESSAGES_H
#define MEDIA_BASE_LIBRARY_MESSAGES_H

#include <cstdint>
#include <string>
#include <vector>

#include "kxutil/kxutil.h"

namespace qlnmedia {

struct LibraryMessage {
  uint32_t severity;  // KX_SEVERITY_ values
  std::string text;   // one line, without the source location at its end
};

// Receives everything that the library says to this thread while it lives; the last one made is the one that
// hears. A host whose own diagnostics stand in for the utility layer's keeps them, and nothing is caught.
class MessageSink {
 public:
  MessageSink();
  ~MessageSink();
  MessageSink(const MessageSink&) = delete;
  MessageSink& operator=(const MessageSink&) = delete;

  // What was said since the last call, the same line not twice in a row; debug prints left out.
  std::vector<LibraryMessage> Take();

 private:
  KXDiagnosticSink previousSink_ = nullptr;
  void* previousContext_ = nullptr;
  static void Receive(uint32_t severity, const char* text, void* context);
  std::vector<LibraryMessage> messages_;
};

// A diagnostic as one line: line feeds to blanks, the trailing source path and line number taken off.
std::string MessageLine(const std::string& text);

}  // namespace qlnmedia

#endif
