#pragma once
// The question that a family asks once of its kernels, and the scenes of all nodes.

#include <gtest/gtest.h>

#include <initializer_list>

#include "tests/support/Sanitized.h"

namespace orlix::test {

// What f(workers) gives for one worker; for more it must give the same. Sanitizers see more workers than cores alone.
template <class F>
auto SameForAnyWorkers(F&& f) {
  const auto one = f(1);
  const std::initializer_list<int> more = {2, 3, 8}, few = {3};
  for (const int workers : kSanitized ? few : more) EXPECT_EQ(f(workers), one) << workers << " workers";
  return one;
}

}  // namespace orlix::test
