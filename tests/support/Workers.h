#pragma once
// The question that a family asks once of its kernels, and the scenes of all nodes.

#include <gtest/gtest.h>

namespace orlix::test {

// What f(workers) gives for one worker; for more it must give the same.
template <class F>
auto SameForAnyWorkers(F&& f) {
  const auto one = f(1);
  for (const int workers : {2, 3, 8}) EXPECT_EQ(f(workers), one) << workers << " workers";
  return one;
}

}  // namespace orlix::test
