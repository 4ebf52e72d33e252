#pragma once
// Loops that fill grids of fractions from the nodes of a signed distance. In z slabs, each sample by itself.

#include "fluids/boundary/CellMask.h"
#include "fluids/grids/EGrid.h"
#include "globals/Vec.h"

namespace orlix {

class WorkerPool;

// What is stored for a share inside: itself or, with complement, the open rest.
struct FractionRule {
  bool complement = false;
  float Store(double inside) const { return static_cast<float>(complement ? 1 - inside : inside); }
};

// Of the faces of an axis, whose corners are nodes: the exact share of the bilinear cut. Limited to [0, 1]; a face that
// is open at all stays open by 0.01, so that no row of the pressure matrix degenerates.
void FillFaceFractions(const GridView<const double>& nodes, int axis, FractionRule rule, const GridView<float>& out,
                       WorkerPool& pool);

// Of the cube of a cell's size around each sample; offset is the sample's place in its cell.
void FillCubeFractions(const GridView<const double>& nodes, const Vec3D& offset, FractionRule rule,
                       const GridView<float>& out, WorkerPool& pool);

// By counting: the points stand at the sample's place plus first + a / perAxis, a in [0, perAxis) in each axis.
void FillCountedFractions(const GridView<const double>& nodes, const Vec3D& offset, int perAxis, const Vec3D& first,
                          FractionRule rule, const GridView<float>& out, WorkerPool& pool);

// Sets the bits of samples that are exactly 0.
void FindZeros(const GridView<const float>& values, CellMask& mask, WorkerPool& pool);

// Sets the wall layers of a face grid of an axis for the faces in the mask (ClosedFace bits): 0 at the border, and
// beside it along the axis.
void ZeroWallLayers(const GridView<float>& faces, int axis, std::uint8_t mask);

}  // namespace orlix
