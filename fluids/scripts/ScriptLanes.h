#pragma once
// What nodes put into the lanes of a batch and take from them. A variable may be null: the script doesn't read it.

#include "fluids/grids/CellRow.h"
#include "host/script/Machine.h"

namespace orlix {

// Centres of the cells [first, first + count) of a row, in simulation space.
void SetPositions(script::Machine& machine, const script::Input* variable, const CellRow& row, std::int32_t first,
                  std::int32_t count);
void SetPositions(script::Machine& machine, const script::Input* variable, const Vec3D* positions, std::int32_t count);
// first, first + 1, ...
void SetIndices(script::Machine& machine, const script::Input* variable, std::int64_t first, std::int32_t count);
void SetNumbers(script::Machine& machine, const script::Input* variable, const double* values, std::int32_t count);
// A component of a vector.
void SetComponents(script::Machine& machine, const script::Input* variable, int component, const double* values,
                   std::int32_t count);
// A component of a vector: the mean of two values, such as those of the faces of a cell.
void SetMeans(script::Machine& machine, const script::Input* variable, int component, const double* low,
              const double* high, std::int32_t count);

// sums[i] += results[i] where amounts[i] isn't 0.
void AddResults(const double* results, const double* amounts, std::int32_t count, double* sums);

// Whether a batch has anything to do.
bool AnyAmount(const double* amounts, std::int32_t count);

// Calls batch(first, count) for runs of [begin, end) that fill a machine.
template <class F>
void ForBatches(std::int32_t begin, std::int32_t end, F&& batch) {
  for (std::int32_t first = begin; first < end; first += script::Machine::kLanes) {
    batch(first, end - first < script::Machine::kLanes ? end - first : script::Machine::kLanes);
  }
}

}  // namespace orlix
