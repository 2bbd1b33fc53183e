// Steps a transport through a clip at a quarter of play: step_transport prints the frames that it shows.
#include <qlnutil/qlntransport.h>

#include <cstdint>
#include <cstdio>

int main() {
  CQLNSpeed speed;
  speed = 0.25;  // a multiple of plain play

  CQLNTransTC2 counter;
  counter.SetRange(100, 103);  // in and out; the out point is the frame behind the range
  counter.SetSpeed(speed);
  counter.SetTC(100);

  for (int shown = 0; shown < 5; ++shown) {
    int32_t ticks = 0;
    const int32_t frame = counter.GetTC(ticks);
    std::printf("frame %d stands for %d ticks\n", frame, ticks);
    ++counter;  // behind the last frame of the range comes its first one
  }
  return 0;
}
