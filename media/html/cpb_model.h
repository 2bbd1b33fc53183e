// The coded picture buffer of the hypothetical reference decoder (ITU-T H.264 clause C.1, H.265 clauses C.2.2
// and C.2.3): when bits arrive, when pictures are taken out, and how full it is.
#ifndef MEDIA_HTML_CPB_MODEL_H
#define MEDIA_HTML_CPB_MODEL_H

#include <cstdint>
#include <deque>
#include <optional>
#include <vector>

namespace qlnmedia::html {

// One schedule of the HRD.
struct CpbSchedule {
  uint64_t bitRate = 0;   // bits a second
  uint64_t cpbSize = 0;   // bits
  bool constant = false;  // cbr_flag
  double tick = 0;        // seconds by which removal delays count
  bool lowDelay = false;  // low_delay_hrd_flag: pictures may be late
  friend bool operator==(const CpbSchedule&, const CpbSchedule&) = default;
};

// What a buffering period message says of the schedule, in units of 1/90000 s.
struct BufferingPeriod {
  uint32_t delay = 0;   // initial_cpb_removal_delay
  uint32_t offset = 0;  // initial_cpb_removal_delay_offset
};

// One access unit.
struct CpbPicture {
  uint64_t bits = 0;
  std::optional<BufferingPeriod> period;  // where one begins with it
  uint64_t removalDelay = 0;              // in ticks from the first picture of the period before
};

// The buffer at one picture.
struct CpbState {
  double arrival = 0;      // seconds at which its last bit is there, from the first bit of all
  double removal = 0;      // seconds at which it is taken out
  double before = 0;       // bits in the buffer at its removal, its own that have arrived included
  bool underflow = false;  // it is not whole when it is to be taken out
  bool overflow = false;   // more bits than the buffer holds
};

// Takes pictures in decoding order and hands back their states, each when the bits that have come by its
// removal are known. Pictures in front of the first buffering period have no state.
class CpbModel {
 public:
  // Another schedule than that of the picture before begins anew.
  void Take(const CpbSchedule& schedule, const CpbPicture& picture);
  // The states that are known by now, in decoding order, those of pictures in front of any period as nothing.
  std::vector<std::optional<CpbState>> Settled();
  // Nothing more comes.
  void Finish();

 private:
  struct Pending {
    double begin = 0;  // of its arrival
    uint64_t bits = 0;
    CpbState state;
  };
  void Begin(const CpbSchedule& schedule);
  void Settle(bool all);

  CpbSchedule schedule_;
  bool running_ = false;
  BufferingPeriod period_;
  double lastRemoval_ = 0;  // nominal, of the first picture of the running period
  double lastArrival_ = 0;  // of the last bit of the picture before
  std::deque<Pending> pending_;
  std::vector<std::optional<CpbState>> settled_;
};

}  // namespace qlnmedia::html

#endif
