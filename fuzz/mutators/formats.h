// The forms of inputs that are trees of pieces. Each is an object without state.
#ifndef FUZZ_MUTATORS_FORMATS_H
#define FUZZ_MUTATORS_FORMATS_H

#include "mutators/pieces.h"

namespace qln::fuzz {

// Boxes of ISO/IEC 14496-12 and QuickTime: a size of 4 or 8 bytes, or none up to the end.
class Boxes final : public Format {
 public:
  Piece Read(const uint8_t* data, size_t size) const override;
  void Write(const Piece& whole, Bytes& out) const override;
};

// Elements of Matroska (RFC 8794): sizes keep their widths while they fit, and unknown ones stay so.
class Elements final : public Format {
 public:
  Piece Read(const uint8_t* data, size_t size) const override;
  void Write(const Piece& whole, Bytes& out) const override;
};

// Triplets of key, length and value (SMPTE ST 336), with the items of local sets.
class Triplets final : public Format {
 public:
  Piece Read(const uint8_t* data, size_t size) const override;
  void Write(const Piece& whole, Bytes& out) const override;
};

// Transport packets of 188, 192 or 204 bytes, which keep their size. Sections that stand in one packet get a
// checksum that holds, but for some.
class Packets final : public Format {
 public:
  Piece Read(const uint8_t* data, size_t size) const override;
  void Write(const Piece& whole, Bytes& out) const override;
};

// NAL units behind start codes of 3 and 4 bytes; what stands in front of the first is a piece too.
class Units final : public Format {
 public:
  Piece Read(const uint8_t* data, size_t size) const override;
  void Write(const Piece& whole, Bytes& out) const override;
};

// Lines of text, each with its end.
class Lines final : public Format {
 public:
  Piece Read(const uint8_t* data, size_t size) const override;
  void Write(const Piece& whole, Bytes& out) const override;
};

// One NAL unit as the codes in its bits: Exp-Golomb codes come in, go, and change without moving what follows
// them out of its place among the codes.
class Codes final : public Format {
 public:
  Piece Read(const uint8_t* data, size_t size) const override;
  void Write(const Piece& whole, Bytes& out) const override;
};

}  // namespace qln::fuzz

#endif
