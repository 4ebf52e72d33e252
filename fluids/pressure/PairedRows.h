#pragma once
// Rows whose odd and even cells are kept apart: pair p is made of the cells 2 p - 1 and 2 p.

#include "fluids/pressure/PressureRows.h"

namespace orlix {

template <class T>
ORLIX_INLINE void JoinPairs(const T* odd, const T* even, int pairs, T* __restrict row) {
  for (int p = 1; p <= pairs; ++p) row[2 * p - 1] = odd[p], row[2 * p] = even[p];
}

// Scales while it narrows.
template <class T>
ORLIX_INLINE void SplitPairs(const T* row, T scale, int pairs, float* __restrict odd, float* __restrict even) {
  for (int p = 1; p <= pairs; ++p) {
    odd[p] = static_cast<float>(row[2 * p - 1] * scale);
    even[p] = static_cast<float>(row[2 * p] * scale);
  }
}

}  // namespace orlix
