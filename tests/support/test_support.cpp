// The helpers that all tests share.

#include "support/test_support.h"

#include <cctype>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <regex>

#include "kxutil/kxutil.h"

namespace qln::test {

Bytes Hex(std::string_view text) {
  Bytes bytes;
  std::string digits;
  for (const char c : text) {
    if (std::isxdigit(static_cast<unsigned char>(c))) digits += c;
    if (digits.size() == 2) {
      bytes.push_back(static_cast<uint8_t>(std::strtoul(digits.c_str(), nullptr, 16)));
      digits.clear();
    }
  }
  return bytes;
}

std::string ToHex(const uint8_t* data, size_t size) {
  static const char* const kDigits = "0123456789ABCDEF";
  std::string text;
  for (size_t i = 0; i < size; ++i) {
    if (i != 0) text += ' ';
    text += kDigits[data[i] >> 4];
    text += kDigits[data[i] & 15];
  }
  return text;
}

Bytes Join(std::initializer_list<Bytes> pieces) {
  Bytes all;
  for (const Bytes& piece : pieces) all.insert(all.end(), piece.begin(), piece.end());
  return all;
}

Bytes WithLength(const Bytes& unit) {
  const size_t n = unit.size();
  return Join({{static_cast<uint8_t>(n >> 24), static_cast<uint8_t>(n >> 16), static_cast<uint8_t>(n >> 8),
                static_cast<uint8_t>(n)},
               unit});
}

Bytes WithStartCode(const Bytes& unit, int codeBytes) {
  return Join({codeBytes == 3 ? Bytes{0, 0, 1} : Bytes{0, 0, 0, 1}, unit});
}

Bytes ReadFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return Bytes(std::istreambuf_iterator<char>(file), {});
}

void WriteFile(const std::string& path, const Bytes& bytes) {
  std::ofstream file(path, std::ios::binary);
  file.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

ExactCopy::ExactCopy(const Bytes& bytes, size_t extra)
    : size_(bytes.size()), bytes_(new uint8_t[bytes.size() + extra]) {
  if (!bytes.empty()) std::memcpy(bytes_.get(), bytes.data(), bytes.size());
  if (extra != 0) std::memset(bytes_.get() + bytes.size(), 0, extra);
}

MessageCapture::MessageCapture() { kxSetDiagnosticSink(Receive, this); }
MessageCapture::~MessageCapture() { kxSetDiagnosticSink(nullptr, nullptr); }

void MessageCapture::Receive(uint32_t severity, const char* text, void* context) {
  static_cast<MessageCapture*>(context)->messages_.push_back({severity, text});
}

std::vector<std::string> MessageCapture::texts() const {
  std::vector<std::string> texts;
  for (const Message& message : messages_) texts.push_back(message.text);
  return texts;
}

std::vector<std::string> MessageCapture::textsWithoutLines() const {
  static const std::regex kLocation("(support/qlnutil/qlnvidutil) [0-9]+$");
  std::vector<std::string> texts;
  for (const Message& message : messages_)
    texts.push_back(std::regex_replace(message.text, kLocation, "$1 LINE"));
  return texts;
}

BitBuilder& BitBuilder::u(int bits, uint64_t value) {
  for (int i = bits - 1; i >= 0; --i) bits_.push_back(i < 64 && (value >> i & 1) != 0);
  return *this;
}

BitBuilder& BitBuilder::ue(uint32_t value) {
  const uint64_t code = uint64_t{value} + 1;
  int length = 0;
  while (code >> (length + 1) != 0) ++length;
  return u(length, 0).u(length + 1, code);
}

BitBuilder& BitBuilder::se(int32_t value) {
  const int64_t wide = value;
  return ue(static_cast<uint32_t>(wide > 0 ? 2 * wide - 1 : -2 * wide));
}

BitBuilder& BitBuilder::raw(std::string_view zerosAndOnes) {
  for (const char c : zerosAndOnes) {
    if (c == '0' || c == '1') bits_.push_back(c == '1');
  }
  return *this;
}

BitBuilder& BitBuilder::align() {
  while (bits_.size() % 8 != 0) bits_.push_back(false);
  return *this;
}

Bytes BitBuilder::bytes() const {
  Bytes bytes((bits_.size() + 7) / 8);
  for (size_t i = 0; i < bits_.size(); ++i) {
    if (bits_[i]) bytes[i / 8] = static_cast<uint8_t>(bytes[i / 8] | 0x80u >> i % 8);
  }
  return bytes;
}

uint64_t Random::next() {
  state_ ^= state_ << 13;
  state_ ^= state_ >> 7;
  state_ ^= state_ << 17;
  return state_ * 0x2545F4914F6CDD1Du >> 8;
}

Bytes Random::bytes(size_t count) {
  Bytes bytes(count);
  for (uint8_t& byte : bytes) byte = static_cast<uint8_t>(next());
  return bytes;
}

Bytes Random::zeroRichBytes(size_t count) {
  static constexpr uint8_t kUsual[] = {0, 0, 0, 0, 0, 1, 2, 3, 3, 4, 12, 255};
  Bytes bytes(count);
  for (uint8_t& byte : bytes) {
    byte = below(8) == 0 ? static_cast<uint8_t>(next()) : kUsual[below(sizeof kUsual)];
  }
  return bytes;
}

}  // namespace qln::test
