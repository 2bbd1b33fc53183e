// A host in C++: the umbrella header alone, and the transport classes by value.
#include <qlnutil/qlnutil.h>

namespace {

struct Transport {
  CQLNTransTC2 counter;
  CQLNSpeed speed;
  CQLNPos mark;
};

bool TransportWorks() {
  Transport transport;
  transport.speed = CQLNSpeed(1, 4);
  transport.counter.SetRange(100, 110);
  transport.counter.SetSpeedZero(transport.speed * CQLNSpeed(2, 1));
  transport.counter = 109;
  long count = 0;
  if (transport.counter.GetTC(count) != 109 || count != 2) return false;
  const Transport copy = transport;
  if (++transport.counter != 100 || copy.counter.GetClipTC() != 9) return false;
  transport.mark += transport.speed;
  transport.mark = transport.mark + CQLNPos(3, 0) - CQLNPos(1, 0);
  return transport.mark.floor() == 2 && transport.mark.frac() == 16380;
}

}  // namespace

int main() {
  uint8_t data[4] = {};
  QLNBitState state{data, 4, 32, 0};
  WriteExponentialGolombCode(&state, 255);
  state.bitPos = 0;
  return ReadExponentialGolombCode(&state) == 255 && state.bitPos == 17 && TransportWorks() ? 0 : 1;
}
