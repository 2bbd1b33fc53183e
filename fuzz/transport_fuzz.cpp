// Transport programs: bytes as a run of member calls with any arguments; positions stay in normal form.

#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "qlnutil/qlntransport.h"

namespace {

// Takes numbers off the front of the input; zeros behind its end.
class Input {
 public:
  Input(const uint8_t* data, size_t size) : data_(data), size_(size) {}
  bool AtEnd() const { return size_ == 0; }
  uint8_t Byte() {
    if (size_ == 0) return 0;
    --size_;
    return *data_++;
  }
  int32_t Number() {
    uint32_t value = 0;
    const uint32_t bytes = Byte() % 4 + 1u;
    for (uint32_t i = 0; i < bytes; ++i) value = value << 8 | Byte();
    const uint32_t unused = 32 - 8 * bytes;
    return static_cast<int32_t>(value << unused) >> unused;
  }

 private:
  const uint8_t* data_;
  size_t size_;
};

void Check(bool condition) {
  if (!condition) std::abort();
}

void Call(Input& input, CQLNTransTC2& counter) {
  switch (input.Byte() % 16) {
    case 0: {
      const int32_t a = input.Number();
      counter.SetRange(a, input.Number());
      break;
    }
    case 1:
      counter.SetSpeed(CQLNSpeed(input.Number()));
      break;
    case 2:
      counter.SetSpeedZero(CQLNSpeed(input.Number()));
      break;
    case 3:
      counter = CQLNSpeed(input.Number());
      break;
    case 4:
      counter = input.Number();
      break;
    case 5: {
      const int32_t whole = input.Number();
      counter.SetTC(CQLNPos(whole, input.Number()));
      break;
    }
    case 6:
      counter.SetTCLimit(input.Number());
      break;
    case 7:
      counter.SetClipTC(input.Number());
      break;
    case 8:
      counter.SetClipTCLimit(input.Number());
      break;
    case 9:
      counter += input.Number();
      break;
    case 10:
      counter -= input.Number();
      break;
    case 11:
      --counter;
      break;
    case 12: {
      CQLNPos position;
      const int32_t numerator = input.Number();
      position.SetAsFrac(numerator, input.Number());
      counter = position;
      break;
    }
    case 13: {
      CQLNSpeed speed;
      double times;
      uint8_t bytes[sizeof times];
      for (uint8_t& byte : bytes) byte = input.Byte();
      std::memcpy(&times, bytes, sizeof times);
      speed = times;
      counter.SetSpeed(speed * CQLNSpeed(input.Number()) / CQLNSpeed(input.Number()));
      break;
    }
    case 14: {
      const int32_t raw = input.Number();
      CQLNSpeed speed(raw);
      const int32_t whole = speed.Fractionalize();
      Check(speed.Get() >= 0 && speed.Get() < QLN_SPEED_PLAY);
      Check(int64_t{whole} * QLN_SPEED_PLAY + speed.Get() == raw);
      uint32_t steps = 0;
      speedReps(&steps, raw);
      speedRate(raw);
      break;
    }
    default:
      ++counter;
      break;
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Input input(data, size);
  CQLNTransTC2 counter;
  while (!input.AtEnd()) {
    Call(input, counter);
    CQLNPos position;
    counter.GetCPos(position);
    Check(position.frac() >= 0 && position.frac() < QLN_SPEED_PLAY);
    Check(counter.GetRepeat() >= 1 && counter.GetRepeat() <= QLN_SPEED_PLAY);
    Check(static_cast<uint32_t>(counter.GetDur()) ==
          static_cast<uint32_t>(counter.GetOut()) - static_cast<uint32_t>(counter.GetIn()));
  }
  return 0;
}
