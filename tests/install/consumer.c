/* A host in plain C: one header, and a few calls whose results it knows. */
#include <kxutil/kxutil.h>
#include <qlnutil/qlnbits.h>
#include <qlnutil/qlnframe.h>
#include <string.h>
#include <timecode/kxtimecode.h>

int main(void) {
  uint8_t data[3] = {0x4C, 0x80, 0x00};
  QLNBitState state = {data, 3, 16, 0};
  char text[32];
  DFrame frame;
  memset(&frame, 0, sizeof frame);
  if (ReadExponentialGolombCode(&state) != 1 || ReadExponentialGolombCode(&state) != 2) return 1;
  if (DFrameCaption(&frame)->captionSize != 0) return 2;
  if (TimeCodeToString(1800, 4, text) != 0 || strcmp(text, "00:01:00;02") != 0) return 3;
  KXFree(KXAlloc(16));
  return 0;
}
