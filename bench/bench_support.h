// What the benchmarks share: how a row is named, its data, and the check that comes before the clock.
//
// A row of the table is a pair or more of cases named "row/ours" and "row/PEER"; the report takes the ratio
// of ours to the fastest peer, repetition by repetition, and its median. A row's goal stands in goals.txt.
#ifndef BENCH_BENCH_SUPPORT_H
#define BENCH_BENCH_SUPPORT_H

#include <cstdint>
#include <string>
#include <vector>

namespace qln::bench {

using Bytes = std::vector<uint8_t>;

// Ends the program with a message unless `held`: a benchmark of wrong results is worth nothing.
void Require(bool held, const char* what);

// A file made once by a command and kept in the build folder; "{out}" stands for the file. Returns its path.
// Ends the program when the command fails.
std::string EncodedFile(const std::string& name, const std::string& command);

Bytes ReadFile(const std::string& path);

// The NAL units of a byte stream, without start codes.
std::vector<Bytes> UnitsOf(const Bytes& stream);

// Random bytes that look like coded data: emulation prevention would find next to nothing in them.
Bytes CodedLikeBytes(size_t count, uint64_t seed = 1);

}  // namespace qln::bench

#endif
