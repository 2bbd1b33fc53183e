// What the walk over a configuration record remembers: contents by number, reads that are not done again,
// states that come back, and that all of it stays bounded.

#include "qlnutil/hevc/walk_memo.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <map>

#include "hevc/unit_builders.h"
#include "support/refused_calls.h"

namespace qln::test {
namespace {

// A content's number is how many others came before it, and stays that.
TEST(WordTable, NumbersContentsInTheOrderOfTheirComing) {
  for (const uint32_t length : {1u, 2u, 3u, 64u}) {
    for (const uint64_t seed : {uint64_t{0}, uint64_t{0x123456789}}) {
      WordTable table(length, seed);
      const auto content = [&](uint32_t i) {
        std::vector<uint32_t> words(length, 7);
        words[i % length] = i * 0x10001;
        words[0] ^= i << 16;
        return words;
      };
      // By an order of its own: what the library of GCC 12 makes of `<` between vectors of words compares too
      // few bytes where the most significant one comes first.
      const auto isBefore = [](const std::vector<uint32_t>& a, const std::vector<uint32_t>& b) {
        return std::lexicographical_compare(a.begin(), a.end(), b.begin(), b.end());
      };
      std::map<std::vector<uint32_t>, uint32_t, decltype(isBefore)> numbers(isBefore);
      for (uint32_t i = 0; i < 3000; ++i) {
        // Each one a second time when others have come.
        for (const uint32_t j : {i, i / 2}) {
          const std::vector<uint32_t> words = content(j);
          const uint32_t next = static_cast<uint32_t>(numbers.size());
          const uint32_t number = numbers.emplace(words, next).first->second;
          ASSERT_EQ(table.Number(words.data()), number) << length << " " << i;
          ASSERT_TRUE(std::equal(words.begin(), words.end(), table.Words(number)));
        }
      }
      EXPECT_EQ(table.bytes(), numbers.size() * length * 4);
      table.Forget();
      EXPECT_EQ(table.bytes(), 0u);
      EXPECT_EQ(table.Number(content(5).data()), 0u);
    }
  }
}

// Whatever stands behind a word that makes its pair's product 0, the sum is the same. The first key of seed 0
// is the upper half of the first number of splitmix64 from 0 on.
TEST(WordTable, TellsContentsOfOneSumApart) {
  constexpr uint64_t kFirstNumber = 0xE220A8397B1DCDAFu;
  constexpr auto kFirstKey = static_cast<uint32_t>(kFirstNumber >> 32);
  WordTable table(2, 0);
  for (uint32_t i = 0; i < 100; ++i) {
    const uint32_t words[] = {0u - kFirstKey, i};
    EXPECT_EQ(table.Number(words), i);
  }
}

struct Records {
  HevcConfigRecord config{};
  std::unique_ptr<HevcVpsRecord> vps = std::make_unique<HevcVpsRecord>();
  std::unique_ptr<HevcSpsRecord> sps = std::make_unique<HevcSpsRecord>();
  std::unique_ptr<HevcPpsRecord> pps = std::make_unique<HevcPpsRecord>();
};

// Stands for a reader: what it does depends on the place, the record and the configuration record alone.
uint32_t ReadAt(WalkKind kind, uint32_t place, Records& records) {
  records.config.general_level_idc = place % 3;
  if (kind == kWalkVps) {
    const bool first = records.vps->vps_num_units_in_tick % 2 == 0;
    records.vps->vps_num_units_in_tick = place;
    (first ? records.vps->vps_time_scale : records.vps->vps_max_layer_id) = place;
  } else if (kind == kWalkPps) {
    records.pps->pps_pic_parameter_set_id ^= place;
    records.pps->num_tile_columns_minus1 = place % 5 == 0;
  } else {
    // Sets beyond the announced ones stay as they were; so do the values behind them.
    HevcSpsRecord& sps = *records.sps;
    sps.num_short_term_ref_pic_sets = place % 4 == 0 ? 64 : place % 4;
    for (uint32_t i = 0; i < sps.num_short_term_ref_pic_sets; ++i) {
      HevcShortTermRps& set = sps.st_ref_pic_set[i];
      uint32_t words[sizeof set / 4];
      std::memcpy(words, &set, sizeof set);
      words[0] = words[sizeof set / 4 - 1] = place + i;
      std::memcpy(&set, words, sizeof set);
    }
    if (place % 2 == 0) sps.long_term_ref_pics_present_flag = place;
    if (place % 3 == 0) sps.sps_seq_parameter_set_id = place;
  }
  return (place * 5 + records.config.general_level_idc) % 12;
}

void ExpectSame(const Records& records, const Records& plain) {
  EXPECT_EQ(std::memcmp(&records.config, &plain.config, sizeof plain.config), 0);
  EXPECT_EQ(Words(*records.vps), Words(*plain.vps));
  EXPECT_EQ(Words(*records.sps), Words(*plain.sps));
  EXPECT_EQ(Words(*records.pps), Words(*plain.pps));
}

TEST(WalkMemo, HasTheRecordsThatEveryReadWouldLeave) {
  Random random(31);
  Records records, plain;
  WalkMemo memo(&records.config, records.vps.get(), records.sps.get(), records.pps.get());
  WalkState state;
  memo.Begin(state);
  int done = 0;
  constexpr int kReads = 6000;
  for (int i = 0; i < kReads; ++i) {
    const auto kind = static_cast<WalkKind>(random.below(3));
    state.bitPos = static_cast<uint32_t>(random.below(12));
    const uint32_t next = ReadAt(kind, state.bitPos, plain);
    HevcReports reports{};
    ASSERT_TRUE(memo.ReadUnit(kind, state, reports, [&](WalkState& moved, HevcReports& said) {
      ++done;
      said.line = static_cast<int>(moved.bitPos) + 100;
      moved.bitPos = ReadAt(kind, moved.bitPos, records);
    }));
    ASSERT_EQ(state.bitPos, next) << i;
    ASSERT_GE(reports.line, 100) << "what a read says it says again";
    ASSERT_EQ(memo.IsEmpty(kWalkPps, state), plain.pps->num_tile_columns_minus1 == 0);
    if (i % 20 == 0) {
      memo.Restore(state);
      ExpectSame(records, plain);
      if (HasFailure()) return;
    }
  }
  EXPECT_LT(done, kReads * 9 / 10) << "reads that were done before are not done again";
  EXPECT_EQ(memo.generation(), 0u);
}

TEST(WalkMemo, TakesRecordsThatAreNotThere) {
  Records records;
  WalkMemo memo(&records.config, nullptr, nullptr, records.pps.get());
  WalkState state;
  memo.Begin(state);
  for (const WalkKind kind : {kWalkVps, kWalkSps}) EXPECT_FALSE(memo.IsEmpty(kind, state)) << kind;
  EXPECT_TRUE(memo.IsEmpty(kWalkPps, state));
  records.pps->num_tile_columns_minus1 = 1;
  memo.Begin(state);
  EXPECT_FALSE(memo.IsEmpty(kWalkPps, state));
  memo.Restore(state);
  EXPECT_EQ(records.pps->num_tile_columns_minus1, 1u);
}

// Reads whose contents are all different, of places that are all different or one.
void ReadMany(uint32_t reads, bool manyPlaces, bool manyContents) {
  Records records;
  WalkMemo memo(&records.config, records.vps.get(), records.sps.get(), records.pps.get());
  WalkState state;
  memo.Begin(state);
  HevcReports reports{};
  uint32_t done = 0;
  const auto read = [&](uint32_t i) {
    state.bitPos = manyPlaces ? i : 0;
    EXPECT_TRUE(memo.ReadUnit(kWalkVps, state, reports, [&](WalkState& moved, HevcReports&) {
      ++done;
      // Two words, of a time that goes on, so that no content comes twice.
      if (manyContents) ++records.vps->vps_num_units_in_tick;
      records.config.general_level_idc = i % 2;
      moved.bitPos = 1;
    }));
  };
  for (uint32_t i = 0; i < reads; ++i) read(i);
  EXPECT_GT(memo.generation(), 0u) << "it was forgotten in between";
  EXPECT_LT(memo.generation(), 4u);
  EXPECT_EQ(done, reads);
  // What comes next is right and remembered again.
  const uint32_t ticks = records.vps->vps_num_units_in_tick;
  read(reads);
  memo.Restore(state);
  EXPECT_EQ(records.vps->vps_num_units_in_tick, manyContents ? ticks + 1 : ticks);
  EXPECT_EQ(records.config.general_level_idc, reads % 2);
}

TEST(WalkMemo, ForgetsWhatTakesTooMuchRoom) {
  ReadMany(140000, true, false);  // reads
  ReadMany(45000, false, true);   // contents of 840 bytes each
}

TEST(WalkMemo, RemembersWithoutNumbersOfTheSystem) {
  const auto remember = [] {
    Records records;
    WalkMemo memo(&records.config, records.vps.get(), records.sps.get(), records.pps.get());
    WalkState state;
    memo.Begin(state);
    HevcReports reports{};
    for (int i = 0; i < 2; ++i) {
      state = {};
      EXPECT_TRUE(memo.ReadUnit(kWalkVps, state, reports, [&](WalkState&, HevcReports&) {
        EXPECT_EQ(i, 0);
        records.vps->vps_num_units_in_tick = 5;
      }));
      EXPECT_EQ(state.records[kWalkVps], 1u);
    }
  };
  if (!RunWithout({{SYS_getrandom, ENOSYS}}, remember)) GTEST_SKIP();
}

TEST(WalkMemo, MovesAStateThatStandsOnACycle) {
  Records records;
  WalkMemo memo(&records.config, records.vps.get(), records.sps.get(), records.pps.get());
  const auto cycleOf = [](size_t size, uint64_t end) {
    WalkMemo::Cycle cycle(size);
    for (size_t i = 0; i < size; ++i) {
      cycle[i].bitPos = static_cast<uint32_t>(i);
      cycle[i].end = end;
    }
    return cycle;
  };
  const auto advanced = [&](WalkKind kind, WalkState state, uint32_t rounds) -> int64_t {
    const uint64_t end = state.end;
    if (!memo.Advance(kind, state, rounds)) return -1;
    EXPECT_EQ(state.end, end);
    return state.bitPos;
  };
  WalkState first;
  EXPECT_EQ(advanced(kWalkVps, first, 5), -1);
  memo.Learn(kWalkVps, cycleOf(100, 0));
  EXPECT_EQ(advanced(kWalkVps, first, 5), 5);
  EXPECT_EQ(advanced(kWalkVps, first, 99), 99);
  EXPECT_EQ(advanced(kWalkVps, first, 100), 0);
  EXPECT_EQ(advanced(kWalkVps, first, 0xFFFFFFFF), 4294967295 % 100);
  EXPECT_EQ(advanced(kWalkSps, first, 5), -1) << "of another kind";
  WalkState later;
  later.bitPos = 96;
  EXPECT_EQ(advanced(kWalkVps, later, 10), 6);
  later.bitPos = 97;
  EXPECT_EQ(advanced(kWalkVps, later, 10), -1) << "one of sixteen in a row is known";

  // Cycles that are too long in all give way to those that come.
  WalkState second, third;
  second.end = 2;
  third.end = 3;
  memo.Learn(kWalkPps, cycleOf(200000, 2));
  EXPECT_EQ(advanced(kWalkVps, first, 5), 5);
  EXPECT_EQ(advanced(kWalkPps, second, 199999), 199999);
  memo.Learn(kWalkPps, cycleOf(100000, 3));
  EXPECT_EQ(advanced(kWalkVps, first, 5), -1);
  EXPECT_EQ(advanced(kWalkPps, second, 5), -1);
  EXPECT_EQ(advanced(kWalkPps, third, 5), 5);
  memo.Learn(kWalkVps, cycleOf(100, 0));
  EXPECT_EQ(advanced(kWalkVps, first, 5), 5);
  EXPECT_EQ(advanced(kWalkPps, third, 5), 5);
}

}  // namespace
}  // namespace qln::test
