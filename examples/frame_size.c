/* Prints the frame size of an H.264 byte stream: frame_size FILE.h264 */
#include <qlnutil/qlnh264.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

enum { MOST_BYTES = 1 << 20, SPARE = 4096 };

int main(int argc, char** argv) {
  FILE* file = argc == 2 ? fopen(argv[1], "rb") : NULL;
  if (file == NULL) {
    fprintf(stderr, "usage: frame_size FILE.h264\n");
    return 2;
  }
  /* Start codes of three bytes become lengths of four, so the frame needs room to grow. */
  uint8_t* bytes = malloc(MOST_BYTES + SPARE);
  if (bytes == NULL) return 1;
  uint32_t size = (uint32_t)fread(bytes, 1, MOST_BYTES / 2, file);
  fclose(file);
  size = qlnUtilh264MarkerToSize(bytes, size);

  DFrame frame;
  memset(&frame, 0, sizeof frame);
  frame.frameData = bytes;
  frame.frameSize = size;
  frame.frameCapacity = MOST_BYTES + SPARE;

  /* Records are not cleared by their readers. */
  H264SpsRecord* sps = calloc(1, sizeof *sps);
  H264PpsRecord* pps = calloc(1, sizeof *pps);
  if (sps == NULL || pps == NULL) return 1;
  const uint32_t units = qlnutilFindNalUnits(&frame, sps, pps, NULL, NULL, NULL, NULL, NULL);
  if (units == 0 || sps->profile_idc == 0) {
    fprintf(stderr, "frame_size: no sequence parameter set in %s\n", argv[1]);
    return 1;
  }
  /* ITU-T H.264, equations 7-13 to 7-22, for 4:2:0. */
  const uint32_t frames_only = sps->frame_mbs_only_flag;
  uint32_t width = (sps->pic_width_in_mbs_minus1 + 1) * 16;
  uint32_t height = (2 - frames_only) * (sps->pic_height_in_map_units_minus1 + 1) * 16;
  if (sps->frame_cropping_flag) {
    width -= 2 * (sps->frame_crop_left_offset + sps->frame_crop_right_offset);
    height -= 2 * (2 - frames_only) * (sps->frame_crop_top_offset + sps->frame_crop_bottom_offset);
  }
  printf("%ux%u\n", width, height);
  free(pps);
  free(sps);
  free(bytes);
  return 0;
}
