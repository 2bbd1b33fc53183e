// Hexadecimal and Base64 texts of binary data.

#include "qlnutil/mediacmd/data_text.h"

#include <algorithm>
#include <cstdint>
#include <new>

#include "kxutil/kxutil.h"

namespace qln {
namespace {

char HexDigit(unsigned nibble) { return "0123456789ABCDEF"[nibble & 15]; }

unsigned Nibble(char c) {
  const unsigned value = static_cast<unsigned char>(c);
  return (value > '9' ? value - 7 : value) & 15;
}

}  // namespace

EncodedData::EncodedData(std::string_view bytes, bool isBase64) {
  if (bytes.empty()) return;
  isBase64 ? EncodeBase64(bytes) : EncodeHex(bytes);
}

EncodedData::~EncodedData() { delete[] text_; }

void EncodedData::EncodeHex(std::string_view bytes) {
  text_ = new (std::nothrow) char[2 * bytes.size()];
  isValid_ = text_ != nullptr;
  if (!isValid_) return;
  for (const char c : bytes) {
    const unsigned byte = static_cast<unsigned char>(c);
    text_[size_++] = HexDigit(byte >> 4);
    text_[size_++] = HexDigit(byte);
  }
}

void EncodedData::EncodeBase64(std::string_view bytes) {
  const uint64_t characters = uint64_t{bytes.size()} * 4 / 3 + 4;
  const uint64_t room = characters + characters / 72 + 17;
  text_ = new (std::nothrow) char[room];  // less than 4 GB: a record has less than 2
  isValid_ = text_ != nullptr;
  if (!isValid_) return;
  uint32_t size = static_cast<uint32_t>(room);
  if (base64_encode(bytes.data(), static_cast<uint32_t>(bytes.size()), &size, text_) == 0) {
    size_ = static_cast<size_t>(std::min<uint64_t>(size, room));
  }
}

void DecodeHex(std::string_view text, size_t count, char* bytes) {
  const size_t pairs = std::min(count, text.size() / 2);
  for (size_t i = 0; i < pairs; ++i) {
    bytes[i] = static_cast<char>(Nibble(text[2 * i]) << 4 | Nibble(text[2 * i + 1]));
  }
}

}  // namespace qln
