// Writes behind the end of a block whose size only the run knows: fortified calls of level 3 end that, those
// of level 2 do not know the size.

#include <cstdio>
#include <cstdlib>
#include <cstring>

int main(int, char** arguments) {
  const std::size_t length = std::strlen(arguments[0]);
  char* const block = static_cast<char*>(std::malloc(length));
  if (block == nullptr) return 1;
  std::memcpy(block, arguments[0], length + static_cast<std::size_t>(std::atoi(arguments[1])));
  std::puts(block);
  std::free(block);
  return 0;
}
