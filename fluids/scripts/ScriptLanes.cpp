#include "fluids/scripts/ScriptLanes.h"

#include <algorithm>

#include "globals/Multiversion.h"

namespace orlix {

void SetPositions(script::Machine& machine, const script::Input* variable, const CellRow& row, std::int32_t first,
                  std::int32_t count) {
  if (!variable) return;
  const Vec3D start = row.Position(first);
  double* x = machine.Lanes(variable->registers[0]);
  const double cell = row.space->simPerVoxel.x, min = row.space->simMin.x;
  for (std::int32_t i = 0; i < count; ++i) x[i] = (first + i + 0.5) * cell + min;
  std::fill_n(machine.Lanes(variable->registers[1]), count, start.y);
  std::fill_n(machine.Lanes(variable->registers[2]), count, start.z);
}

void SetPositions(script::Machine& machine, const script::Input* variable, const Vec3D* positions, std::int32_t count) {
  if (!variable) return;
  for (int c = 0; c < 3; ++c) {
    double* lanes = machine.Lanes(variable->registers[c]);
    for (std::int32_t i = 0; i < count; ++i) lanes[i] = positions[i][c];
  }
}

void SetIndices(script::Machine& machine, const script::Input* variable, std::int64_t first, std::int32_t count) {
  if (!variable) return;
  double* lanes = machine.Lanes(variable->registers[0]);
  for (std::int32_t i = 0; i < count; ++i) lanes[i] = static_cast<double>(first) + i;
}

void SetNumbers(script::Machine& machine, const script::Input* variable, const double* values, std::int32_t count) {
  if (variable) std::copy_n(values, count, machine.Lanes(variable->registers[0]));
}

void SetComponents(script::Machine& machine, const script::Input* variable, int component, const double* values,
                   std::int32_t count) {
  if (variable) std::copy_n(values, count, machine.Lanes(variable->registers[component]));
}

namespace {

ORLIX_MULTIVERSION
void MeanRow(const double* low, const double* high, std::int32_t count, double* out) {
  for (std::int32_t i = 0; i < count; ++i) out[i] = 0.5 * (low[i] + high[i]);
}

}  // namespace

void SetMeans(script::Machine& machine, const script::Input* variable, int component, const double* low,
              const double* high, std::int32_t count) {
  if (variable) MeanRow(low, high, count, machine.Lanes(variable->registers[component]));
}

ORLIX_MULTIVERSION
void AddResults(const double* results, const double* amounts, std::int32_t count, double* sums) {
  for (std::int32_t i = 0; i < count; ++i) sums[i] += amounts[i] != 0 ? results[i] : 0;
}

bool AnyAmount(const double* amounts, std::int32_t count) {
  return std::any_of(amounts, amounts + count, [](double amount) { return amount != 0; });
}

}  // namespace orlix
