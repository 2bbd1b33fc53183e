// A reader of MXF that shares nothing with the carrier: all triplets of a file, and what its packs and index
// say of them.
#ifndef TESTS_MXF_LIST_TRIPLETS_H
#define TESTS_MXF_LIST_TRIPLETS_H

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace qln::test {

using Bytes = std::vector<uint8_t>;

struct ReadTriplet {
  size_t at = 0;
  std::string key;  // in hexadecimal digits
  size_t lengthBytes = 1;
  Bytes value;

  bool isFill() const { return key.substr(0, 14) == "060e2b34010101" && key.substr(16, 8) == "03010210"; }
  bool isPartition() const;
  bool isIndex() const { return key.substr(8, 4) == "0253" && key.substr(16, 12) == "0d0102010110"; }
  bool isRandomIndex() const { return key.substr(8, 4) == "0205" && key.substr(16, 12) == "0d0102010111"; }
  bool isSet() const { return key.substr(8, 4) == "0253" && key.substr(16, 10) == "0d01010101"; }
  bool isPrimer() const { return key.substr(8, 4) == "0205" && key.substr(16, 12) == "0d0102010105"; }
  bool isEssence() const { return key.substr(8, 4) == "0102" && key.substr(16, 8) == "0d010301"; }
  std::string number() const { return key.substr(24); }
};

// Those of a file behind its run-in. Fails the test where bytes are none.
std::vector<ReadTriplet> ListTriplets(const Bytes& file);

uint64_t NumberAt(const Bytes& bytes, size_t at, size_t size);

// The local tags of a set with their values.
std::map<uint16_t, Bytes> TagsOf(const Bytes& set);

// Fails the test unless `out` is `in` with these values in its picture elements (`number` as in a key's last
// four bytes), in their order, while all that names places points to what it pointed to, what was aligned is
// aligned, and all else is the input's bytes. Values of header metadata may differ where `described`.
void ExpectCarried(const Bytes& in, const Bytes& out, const std::vector<Bytes>& pictures,
                   const std::string& number = "15010500", bool described = false);

}  // namespace qln::test

#endif
