/* A host in plain C: a count of frames as drop-frame timecode. */
#include <stdio.h>
#include <stdlib.h>
#include <timecode/kxtimecode.h>

int main(int argc, char** argv) {
  char text[32];
  if (argc != 2 || TimeCodeToString((uint32_t)strtoul(argv[1], NULL, 10), 4, text) != 0) return 1;
  puts(text);
  return 0;
}
