// Inputs that are trees of pieces with sizes in front, as boxes, elements, triplets and packets are: mutated
// piece by piece, and written with sizes that hold again, so that readers are reached behind their first
// check.
#ifndef FUZZ_MUTATORS_PIECES_H
#define FUZZ_MUTATORS_PIECES_H

#include <cstddef>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

namespace qln::fuzz {

using Bytes = std::vector<uint8_t>;

// What a format read and how it is written again is the format's own: it puts what it needs into `form`.
struct Piece {
  Bytes name;    // what tells its kind
  int form = 0;  // how its size is written
  Bytes prefix;  // fields in front of its parts
  std::vector<Piece> parts;
  Bytes rest;  // all that a piece without parts holds; of others what behind the last part is no piece
};

// One way to take bytes apart. Write(Read(bytes)) gives the bytes back, whatever they are.
class Format {
 public:
  virtual ~Format() = default;
  // A nameless piece that holds all of it.
  virtual Piece Read(const uint8_t* data, size_t size) const = 0;
  virtual void Write(const Piece& whole, Bytes& out) const = 0;

 protected:
  Format() = default;
  Format(const Format&) = default;
  Format& operator=(const Format&) = default;
};

using Random = std::minstd_rand;
// Changes `size` bytes within `room` bytes, and gives their new number.
using ByteMutator = size_t (*)(uint8_t* data, size_t size, size_t room);

// Changes a tree in one to three places.
void MutatePieces(Piece& whole, Random& random, ByteMutator bytes);
// Puts a piece of `other` into `whole`, in the place of one of its kind where there is one.
void CrossPieces(Piece& whole, const Piece& other, Random& random);

// Reads, changes, and writes what stands behind `head` bytes, which steer the target: each of the two gives
// the new size, never above `room`, or 0 where nothing came of it.
size_t Mutated(const Format& format, size_t head, uint8_t* data, size_t size, size_t room, unsigned seed,
               ByteMutator bytes);
size_t Crossed(const Format& format, size_t head, const uint8_t* one, size_t oneSize, const uint8_t* other,
               size_t otherSize, uint8_t* out, size_t room, unsigned seed);

}  // namespace qln::fuzz

// Has libFuzzer change every second input of a target by `format`; the rest, and programs that replay, as
// ever.
#ifdef QLN_LIBFUZZER
extern "C" size_t LLVMFuzzerMutate(uint8_t* data, size_t size, size_t room);
#define QLN_FUZZ_BY_PIECES(format, head)                                                                    \
  extern "C" size_t LLVMFuzzerCustomMutator(uint8_t* data, size_t size, size_t room, unsigned seed) {       \
    const size_t fresh =                                                                                    \
        seed % 2 == 0 ? 0 : qln::fuzz::Mutated(format, head, data, size, room, seed, LLVMFuzzerMutate);     \
    return fresh != 0 ? fresh : LLVMFuzzerMutate(data, size, room);                                         \
  }                                                                                                         \
  extern "C" size_t LLVMFuzzerCustomCrossOver(const uint8_t* one, size_t oneSize, const uint8_t* other,     \
                                              size_t otherSize, uint8_t* out, size_t room, unsigned seed) { \
    return qln::fuzz::Crossed(format, head, one, oneSize, other, otherSize, out, room, seed);               \
  }
#else
#define QLN_FUZZ_BY_PIECES(format, head)
#endif

#endif
