// Diagnostics: every message of the process goes through one sink, which a host may set; a thread may have
// one of its own.

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>

#include "kxutil/kxutil.h"
#include "kxutil/plain_format.h"

namespace {

void WriteToStandardError(uint32_t severity, const char* text, void*) {
  if (severity == KX_SEVERITY_DEBUG) return;
  const size_t length = std::strlen(text);
  const bool ended = length != 0 && text[length - 1] == '\n';
  (void)std::fprintf(stderr, ended ? "%s" : "%s\n", text);
}

std::mutex sinkMutex;
KXDiagnosticSink currentSink = WriteToStandardError;
void* currentContext = nullptr;

struct ThreadSink {
  KXDiagnosticSink sink = nullptr;
  void* context = nullptr;
};
thread_local ThreadSink threadSink;

void Emit(uint32_t severity, const char* text) {
  if (threadSink.sink != nullptr) return threadSink.sink(severity, text, threadSink.context);
  const std::lock_guard<std::mutex> lock(sinkMutex);
  currentSink(severity, text, currentContext);
}

// Formats on the stack where the text fits, else on the heap; without memory the text goes out cut.
void EmitFormatted(uint32_t severity, const char* format, va_list arguments) {
  if (format == nullptr) return;
  char shortText[1024];
  va_list again;
  va_copy(again, arguments);
  const bool isPlain = qln::FormatPlain(shortText, sizeof shortText, format, again);
  va_end(again);
  if (isPlain) return Emit(severity, shortText);
  va_copy(again, arguments);
  const int needed = std::vsnprintf(shortText, sizeof shortText, format, arguments);
  if (needed < 0) {
    Emit(severity, format);
  } else if (static_cast<size_t>(needed) < sizeof shortText) {
    Emit(severity, shortText);
  } else {
    const size_t size = static_cast<size_t>(needed) + 1;
    char* longText = static_cast<char*>(std::malloc(size));
    if (longText != nullptr) (void)std::vsnprintf(longText, size, format, again);
    Emit(severity, longText != nullptr ? longText : shortText);
    std::free(longText);
  }
  va_end(again);
}

}  // namespace

void kxSetDiagnosticSink(KXDiagnosticSink sink, void* context) {
  const std::lock_guard<std::mutex> lock(sinkMutex);
  currentSink = sink != nullptr ? sink : WriteToStandardError;
  currentContext = context;
}

void kxSetThreadDiagnosticSink(KXDiagnosticSink sink, void* context, KXDiagnosticSink* previousSink,
                               void** previousContext) {
  if (previousSink != nullptr) *previousSink = threadSink.sink;
  if (previousContext != nullptr) *previousContext = threadSink.context;
  threadSink = {sink, sink != nullptr ? context : nullptr};
}

void ErrOut(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  EmitFormatted(KX_SEVERITY_ERROR, format, arguments);
  va_end(arguments);
}

void ErrFmtOut(uint32_t flags, uint32_t, uint32_t, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  EmitFormatted(flags, format, arguments);
  va_end(arguments);
}

void OutputDebugStringA(const char* text) {
  if (text != nullptr) Emit(KX_SEVERITY_DEBUG, text);
}
