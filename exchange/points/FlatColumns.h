#pragma once
// The columns of a table as single numbers with names, as formats without vectors have them:
//
//   position x y z    velocity vx vy vz    normal nx ny nz    color red green blue
//   any other vector  NAME_x NAME_y NAME_z, of another number of components NAME_0 NAME_1 ...

#include <vector>

#include "exchange/points/PointSet.h"

namespace orlix {

struct FlatColumn {
  std::string name;
  const PointAttribute* attribute;
  int component;
};
// A name that comes twice gets "_2".
std::vector<FlatColumn> FlatColumnsOf(const PointSet& set);

// Joins single columns to vectors by those names; the others stay. Colours of bytes become fractions of 255.
PointSet MergeColumns(PointSet flat);

struct ColumnRange {
  std::string name;
  const char* type;
  double low = 0, high = 0, mean = 0;  // 0 without particles
};
std::vector<ColumnRange> RangesOf(const PointSet& set);

}  // namespace orlix
