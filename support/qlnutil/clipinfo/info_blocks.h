// The blocks that a record's slots own, and how much of a block may be read.
#ifndef QLNUTIL_CLIPINFO_INFO_BLOCKS_H
#define QLNUTIL_CLIPINFO_INFO_BLOCKS_H

#include <cstddef>
#include <cstdint>

namespace qln {

// Bytes that a text's block holds beyond the text itself, its terminator among them.
constexpr size_t kTextSlack = 4;

// The size of a block as the utility layer knows it; 0 if it does not.
size_t KnownSize(const void* block);

// The length of a slot's text, which ends with its block where the block's size is known.
size_t TextLength(const void* text);

// The bytes that a block tells in its first word; 0 if the word is not wholly inside the block or tells more
// than the block holds.
uint32_t LengthInFirstWord(const void* block);

// A new block of `size` bytes with the first `count` of `source`, as far as that is known to reach, and zeros
// behind. Null without memory.
void* CopyBlock(const void* source, size_t count, size_t size);

}  // namespace qln

#endif
