// Binary data of a command as text, and back.
#ifndef QLNUTIL_MEDIACMD_DATA_TEXT_H
#define QLNUTIL_MEDIACMD_DATA_TEXT_H

#include <cstddef>
#include <string_view>

namespace qln {

// The text of binary data, held while this object lives: upper-case hexadecimal, or Base64 with line breaks.
class EncodedData {
 public:
  EncodedData(std::string_view bytes, bool isBase64);
  ~EncodedData();
  EncodedData(const EncodedData&) = delete;
  EncodedData& operator=(const EncodedData&) = delete;

  // False where there was no memory for the text.
  bool isValid() const { return isValid_; }
  std::string_view view() const { return {text_, size_}; }

 private:
  void EncodeHex(std::string_view bytes);
  void EncodeBase64(std::string_view bytes);
  char* text_ = nullptr;
  size_t size_ = 0;
  bool isValid_ = true;
};

// Decodes up to `count` pairs of hexadecimal characters; a text that holds fewer leaves the bytes behind as
// they were. Characters are not checked: one above "9" counts 7 less, and of that the low four bits make the
// nibble, which reads both cases of letters.
void DecodeHex(std::string_view text, size_t count, char* bytes);

}  // namespace qln

#endif
