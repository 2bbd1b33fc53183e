#include "mutators/pieces.h"

#include <algorithm>
#include <cstring>
#include <limits>

namespace qln::fuzz {

namespace {

constexpr size_t kMostPieces = 20000;
constexpr size_t kMostCopies = 4;
constexpr size_t kMostGrowth = 64;
constexpr int kOperations = 7;

size_t Below(Random& random, size_t limit) { return limit == 0 ? 0 : random() % limit; }

// Every piece that has parts, and the whole: those into which something can be put.
void Holders(Piece& piece, std::vector<Piece*>& found) {
  if (found.size() > kMostPieces) return;
  found.push_back(&piece);
  for (Piece& part : piece.parts) {
    if (!part.parts.empty()) Holders(part, found);
  }
}

void All(Piece& piece, std::vector<Piece*>& found) {
  if (found.size() > kMostPieces) return;
  for (Piece& part : piece.parts) {
    found.push_back(&part);
    All(part, found);
  }
}

Piece* Any(Piece& whole, Random& random, const Bytes* name = nullptr) {
  std::vector<Piece*> found;
  All(whole, found);
  if (name != nullptr) {
    found.erase(
        std::remove_if(found.begin(), found.end(), [&](const Piece* one) { return one->name != *name; }),
        found.end());
  }
  return found.empty() ? nullptr : found[Below(random, found.size())];
}

void Insert(Piece& holder, Piece piece, Random& random) {
  const size_t at = Below(random, holder.parts.size() + 1);
  holder.parts.insert(holder.parts.begin() + static_cast<std::ptrdiff_t>(at), std::move(piece));
}

// Numbers at which readers err: ends of ranges, and neighbours of what was there.
uint64_t Number(uint64_t was, unsigned bits, Random& random) {
  const uint64_t most = bits == 64 ? std::numeric_limits<uint64_t>::max() : (uint64_t{1} << bits) - 1;
  switch (random() % 8) {
    case 0:
      return 0;
    case 1:
      return 1;
    case 2:
      return most;
    case 3:
      return most >> 1;
    case 4:
      return (most >> 1) + 1;
    case 5:
      return was + 1;
    case 6:
      return was - 1;
    default:
      return random() % 65536;
  }
}

void SetNumber(Bytes& bytes, Random& random) {
  const size_t width = size_t{1} << random() % 4;
  if (bytes.size() < width) return;
  const size_t at = Below(random, bytes.size() - width + 1);
  uint64_t value = 0;
  for (size_t i = 0; i < width; ++i) value = value << 8 | bytes[at + i];
  value = Number(value, static_cast<unsigned>(width * 8), random);
  for (size_t i = width; i-- > 0; value >>= 8) bytes[at + i] = static_cast<uint8_t>(value);
}

void Change(Bytes& bytes, Random& random, ByteMutator mutator) {
  if (bytes.empty() || random() % 2 == 0) return SetNumber(bytes, random);
  const size_t size = bytes.size();
  bytes.resize(size + 1 + Below(random, kMostGrowth));
  bytes.resize(mutator(bytes.data(), size, bytes.size()));
}

// The bytes of a piece, or those in front of its parts.
void ChangeBytes(Piece& piece, Random& random, ByteMutator mutator) {
  Change(piece.parts.empty() || piece.prefix.empty() ? piece.rest : piece.prefix, random, mutator);
}

void MutateOnce(Piece& whole, Random& random, ByteMutator mutator) {
  std::vector<Piece*> holders;
  Holders(whole, holders);
  Piece& holder = *holders[Below(random, holders.size())];
  std::vector<Piece>& parts = holder.parts;
  const size_t at = Below(random, parts.size());
  switch (parts.empty() ? kOperations : static_cast<int>(random() % kOperations)) {
    case 0:
      parts.erase(parts.begin() + static_cast<std::ptrdiff_t>(at));
      return;
    case 1: {
      const Piece piece = parts[at];
      for (size_t i = 0; i <= Below(random, kMostCopies); ++i) Insert(holder, piece, random);
      return;
    }
    case 2:
      std::swap(parts[at], parts[Below(random, parts.size())]);
      return;
    case 3: {
      const Piece piece = parts[at];
      Insert(*holders[Below(random, holders.size())], piece, random);
      return;
    }
    default:
      Piece* const any = Any(whole, random);
      ChangeBytes(any == nullptr ? whole : *any, random, mutator);
  }
}

size_t Put(const Bytes& bytes, uint8_t* out, size_t room) {
  if (bytes.empty() || bytes.size() > room) return 0;
  std::memcpy(out, bytes.data(), bytes.size());
  return bytes.size();
}

}  // namespace

void MutatePieces(Piece& whole, Random& random, ByteMutator bytes) {
  for (size_t i = 0; i <= Below(random, 3); ++i) MutateOnce(whole, random, bytes);
}

void CrossPieces(Piece& whole, const Piece& other, Random& random) {
  Piece copy = other;
  const Piece* const from = Any(copy, random);
  if (from == nullptr) return;
  Piece* const place = random() % 4 == 0 ? nullptr : Any(whole, random, &from->name);
  if (place != nullptr) {
    *place = *from;
    return;
  }
  std::vector<Piece*> holders;
  Holders(whole, holders);
  Insert(*holders[Below(random, holders.size())], *from, random);
}

size_t Mutated(const Format& format, size_t head, uint8_t* data, size_t size, size_t room, unsigned seed,
               ByteMutator bytes) {
  if (size <= head) return 0;
  Random random(seed);
  Piece whole = format.Read(data + head, size - head);
  MutatePieces(whole, random, bytes);
  Bytes out(data, data + head);
  if (head != 0 && random() % 8 == 0) bytes(out.data(), head, head);
  out.resize(head);
  format.Write(whole, out);
  return Put(out, data, room);
}

size_t Crossed(const Format& format, size_t head, const uint8_t* one, size_t oneSize, const uint8_t* other,
               size_t otherSize, uint8_t* out, size_t room, unsigned seed) {
  if (oneSize <= head || otherSize <= head) return 0;
  Random random(seed);
  Piece whole = format.Read(one + head, oneSize - head);
  CrossPieces(whole, format.Read(other + head, otherSize - head), random);
  Bytes bytes(one, one + head);
  format.Write(whole, bytes);
  return Put(bytes, out, room);
}

}  // namespace qln::fuzz
