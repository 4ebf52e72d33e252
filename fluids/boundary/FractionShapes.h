#pragma once
// The share of a segment, a square or a cube that lies inside a signed distance, known at the corners and taken as
// linear between them. Negative is inside.

namespace orlix {

// Of the segment between values a and b. A magnitude below 1e-10 counts as 1e-10 on its side; 0 counts as inside.
float FractionInsideSegment(float a, float b);

// Corners in cyclic order. strict: a corner at 0 is inside; otherwise it is outside.
float FractionInsideSquare(float a, float b, float c, float d, bool strict);

// Of a tetrahedron.
double FractionInsideTetrahedron(double a, double b, double c, double d);

// Corner n stands at (n >> 2, n >> 1 & 1, n & 1). The mean of the two ways to cut a cube into five tetrahedra, so that
// mirrored values give mirrored shares.
double FractionInsideCube(const double corners[8]);

}  // namespace orlix
