// Transport streams put together by hand, and a reader of them that shares nothing with the carrier.
#ifndef TESTS_TS_TRANSPORT_H
#define TESTS_TS_TRANSPORT_H

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace qln::test {

using Bytes = std::vector<uint8_t>;

enum class Row { kPlain, kArrivalTime, kParity };

// Writes packets one after the other.
class TransportBuilder {
 public:
  explicit TransportBuilder(Row row = Row::kPlain) : row_(row) {}

  // One packet. `field`: flags and what they announce of an adaptation field; stuffing fills up what
  // `payload` leaves.
  void Packet(uint16_t identifier, bool start, const Bytes& payload, const Bytes& field = {});
  void Null();
  // A PES packet with a presentation time, over as many packets as it takes; `field` goes into the first.
  // With `length` 0 it does not say how long it is. A null packet stands behind each of the first `nulls`
  // packets.
  void Pes(uint16_t identifier, const Bytes& stream, uint64_t pts, bool length = false,
           const Bytes& field = {}, int nulls = 0);
  void Raw(const Bytes& bytes) { bytes_.insert(bytes_.end(), bytes.begin(), bytes.end()); }
  // The next packet of the stream counts from there.
  void SetCounter(uint16_t identifier, uint8_t counter) { counters_[identifier] = counter; }

  const Bytes& bytes() const { return bytes_; }

 private:
  void Put(const Bytes& packet);

  Row row_;
  Bytes bytes_;
  std::map<uint16_t, uint8_t> counters_;
  uint32_t time_ = 0;
};

// The flags and the field of a clock reference of 33 and 9 bits.
Bytes ClockReference(uint64_t base, uint16_t extension = 0);

struct PesRead {
  Bytes head;  // up to the elementary stream's bytes
  Bytes stream;
};
struct StreamRead {
  std::vector<PesRead> packets;
  std::string counters;           // of each packet, as a digit or letter; '.' behind one without a payload
  std::vector<Bytes> references;  // clock references, in their order
};
struct TransportRead {
  size_t packets = 0;
  size_t nulls = 0;
  std::map<uint16_t, StreamRead> streams;
  // Whole packets but for null packets and those of the streams that are asked for.
  std::vector<Bytes> others;
  std::vector<uint32_t> arrivalTimes;
  bool parityHolds = true;
};
// Fails the test where bytes are no packets.
TransportRead ReadTransport(const Bytes& bytes, const std::vector<uint16_t>& identifiers,
                            Row row = Row::kPlain);

}  // namespace qln::test

#endif
