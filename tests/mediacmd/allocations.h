// Makes one allocation of the program fail, whether by new or by KXAlloc.
#ifndef TESTS_MEDIACMD_ALLOCATIONS_H
#define TESTS_MEDIACMD_ALLOCATIONS_H

namespace qln::test {

// While it lives, the allocation with this number (0 is the next one) fails, of the calling thread's.
class FailAllocation {
 public:
  explicit FailAllocation(int countdown);
  ~FailAllocation();
  FailAllocation(const FailAllocation&) = delete;
  FailAllocation& operator=(const FailAllocation&) = delete;

  // Whether it has come to that; no allocation fails from then on.
  bool hasFailed() const;
};

// Base64 that is refused, while one lives, as a host's own layer may do.
class RefuseBase64 {
 public:
  RefuseBase64();
  ~RefuseBase64();
  RefuseBase64(const RefuseBase64&) = delete;
  RefuseBase64& operator=(const RefuseBase64&) = delete;
};

}  // namespace qln::test

#endif
