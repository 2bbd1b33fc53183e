// A host in C++: the umbrella header alone.
#include <qlnutil/qlnutil.h>

int main() {
  uint8_t data[4] = {};
  QLNBitState state{data, 4, 32, 0};
  WriteExponentialGolombCode(&state, 255);
  state.bitPos = 0;
  return ReadExponentialGolombCode(&state) == 255 && state.bitPos == 17 ? 0 : 1;
}
