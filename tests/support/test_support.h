// What all tests share: captured diagnostics, exact-size inputs, guarded outputs, and a plain bit builder.
#ifndef TESTS_SUPPORT_TEST_SUPPORT_H
#define TESTS_SUPPORT_TEST_SUPPORT_H

#include <cstdint>
#include <initializer_list>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace qln::test {

using Bytes = std::vector<uint8_t>;

// "00 00 01 67" to bytes; blanks are ignored.
Bytes Hex(std::string_view text);
std::string ToHex(const uint8_t* data, size_t size);
inline std::string ToHex(const Bytes& bytes) { return ToHex(bytes.data(), bytes.size()); }

// Joins runs of bytes.
Bytes Join(std::initializer_list<Bytes> pieces);

// A unit with its size in front as 4 bytes big-endian, or a start code of 3 or 4 bytes.
Bytes WithLength(const Bytes& unit);
Bytes WithStartCode(const Bytes& unit, int codeBytes = 4);

Bytes ReadFile(const std::string& path);
void WriteFile(const std::string& path, const Bytes& bytes);

// A heap copy of exactly the given size (plus `extra` zero bytes that the callee is told to be allowed to
// read), so that one byte too far is seen by AddressSanitizer.
class ExactCopy {
 public:
  explicit ExactCopy(const Bytes& bytes, size_t extra = 0);
  uint8_t* data() { return bytes_.get(); }
  size_t size() const { return size_; }
  Bytes bytes() const { return Bytes(bytes_.get(), bytes_.get() + size_); }

 private:
  size_t size_;
  std::unique_ptr<uint8_t[]> bytes_;
};

// One message that went through the diagnostics sink.
struct Message {
  uint32_t severity;
  std::string text;
};

// Collects all diagnostics of the process while it lives.
class MessageCapture {
 public:
  MessageCapture();
  ~MessageCapture();
  MessageCapture(const MessageCapture&) = delete;
  MessageCapture& operator=(const MessageCapture&) = delete;

  const std::vector<Message>& messages() const { return messages_; }
  std::vector<std::string> texts() const;
  // The texts with the line number of a trailing source location replaced by "LINE".
  std::vector<std::string> textsWithoutLines() const;
  void clear() { messages_.clear(); }

 private:
  static void Receive(uint32_t severity, const char* text, void* context);
  std::vector<Message> messages_;
};

// Builds a bit string one bit at a time with the codes of the published standards; independent of the
// library.
class BitBuilder {
 public:
  BitBuilder& u(int bits, uint64_t value);  // more than 64 bits: zeros in front
  BitBuilder& ue(uint32_t value);
  BitBuilder& se(int32_t value);
  BitBuilder& raw(std::string_view zerosAndOnes);  // blanks are ignored
  BitBuilder& align();                             // zero bits up to a byte boundary
  BitBuilder& trailing() { return u(1, 1).align(); }
  size_t bits() const { return bits_.size(); }
  Bytes bytes() const;  // the last byte filled up with zero bits

 private:
  std::vector<bool> bits_;
};

// A small, fast, repeatable random source.
class Random {
 public:
  explicit Random(uint64_t seed) : state_(seed * 0x9E3779B97F4A7C15u + 1) {}
  uint64_t next();
  // 0 to bound - 1.
  uint64_t below(uint64_t bound) { return next() % bound; }
  Bytes bytes(size_t count);
  // Bytes in which 0 to 4 are far more frequent than the rest, for emulation prevention.
  Bytes zeroRichBytes(size_t count);

 private:
  uint64_t state_;
};

}  // namespace qln::test

#endif
