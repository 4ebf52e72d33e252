#include "fluids/boundary/CornerClasses.h"

#include "globals/Multiversion.h"

namespace orlix {

namespace {

inline double Lower(double a, double b) { return b < a ? b : a; }
inline double Higher(double a, double b) { return a < b ? b : a; }

ORLIX_MULTIVERSION void ClassifyRow(const double* p, std::int64_t dx, std::int64_t dy, std::int64_t dz, int count,
                                    double openAbove, double insideUpTo, std::uint8_t* __restrict classes) {
  const double *a = p, *b = p + dx, *c = p + dy, *d = p + dx + dy;
  const double *e = a + dz, *f = b + dz, *g = c + dz, *h = d + dz;
  for (int i = 0; i < count; ++i) {
    const double least =
        Lower(Lower(Lower(a[i], b[i]), Lower(c[i], d[i])), Lower(Lower(e[i], f[i]), Lower(g[i], h[i])));
    const double most =
        Higher(Higher(Higher(a[i], b[i]), Higher(c[i], d[i])), Higher(Higher(e[i], f[i]), Higher(g[i], h[i])));
    const int notOpen = !(least > openAbove), notInside = most > insideUpTo;
    classes[i] = static_cast<std::uint8_t>(notOpen + (notOpen & notInside));
  }
}

}  // namespace

void CornerClasses::Find(const double* p, const CornerSteps& steps, int count, double openAbove, double insideUpTo) {
  ClassifyRow(p, steps.x, steps.y, steps.z, count, openAbove, insideUpTo, classes_.data());
}

}  // namespace orlix
