#pragma once
// Writes a value at a point into the eight cells of the trilinear cube around it.

#include "fluids/grids/Interpolation.h"

namespace orlix {

enum class SpreadOperation : int { Assign = 0, Add = 1, Subtract = 2, Multiply = 3, Divide = 4 };

template <class T>
void ApplySpread(T& cell, T share, SpreadOperation operation) {
  switch (operation) {
    case SpreadOperation::Assign:
      cell = share;
      break;
    case SpreadOperation::Add:
      cell += share;
      break;
    case SpreadOperation::Subtract:
      cell -= share;
      break;
    case SpreadOperation::Multiply:
      cell *= share;
      break;
    case SpreadOperation::Divide:
      cell /= share;
      break;
  }
}

// x, y, z are array coordinates; outside it the value goes to the border's cube. Each cell takes its
// weight times value. Only z layers in [layerBegin, layerEnd) are written: a worker keeps to its own. Arrays need 2
// cells an axis.
template <class T>
void SpreadWithin(const GridView<T>& grid, T value, double x, double y, double z, SpreadOperation operation,
                  int layerBegin, int layerEnd) {
  const AxisCell ax = LinearAxis(x, grid.dims.x), ay = LinearAxis(y, grid.dims.y), az = LinearAxis(z, grid.dims.z);
  const double wx[2] = {1 - ax.f, ax.f}, wy[2] = {1 - ay.f, ay.f}, wz[2] = {1 - az.f, az.f};
  for (int c = 0; c < 2; ++c) {
    const int k = az.i + c;
    if (k < layerBegin || k >= layerEnd) continue;
    for (int b = 0; b < 2; ++b) {
      for (int a = 0; a < 2; ++a) {
        const double weight = wx[a] * wy[b] * wz[c];
        ApplySpread(grid(ax.i + a, ay.i + b, k), static_cast<T>(weight * static_cast<double>(value)), operation);
      }
    }
  }
}

template <class T>
void Spread(const GridView<T>& grid, T value, double x, double y, double z, SpreadOperation operation) {
  SpreadWithin(grid, value, x, y, z, operation, 0, grid.dims.z);
}

}  // namespace orlix
