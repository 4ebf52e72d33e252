#include "fluids/boundary/CornerClasses.h"

#include "globals/Multiversion.h"

namespace orlix {

namespace {

inline double Lower(double a, double b) { return b < a ? b : a; }
inline double Higher(double a, double b) { return a < b ? b : a; }

struct NodeRows {
  const double *a, *b, *c, *d, *e, *f, *g, *h;
};

ORLIX_INLINE double Least(const NodeRows& at, int i) {
  return Lower(Lower(Lower(at.a[i], at.b[i]), Lower(at.c[i], at.d[i])),
               Lower(Lower(at.e[i], at.f[i]), Lower(at.g[i], at.h[i])));
}
ORLIX_INLINE double Most(const NodeRows& at, int i) {
  return Higher(Higher(Higher(at.a[i], at.b[i]), Higher(at.c[i], at.d[i])),
                Higher(Higher(at.e[i], at.f[i]), Higher(at.g[i], at.h[i])));
}

constexpr int kBlock = 16;

// As wide as the values, so that the loops vectorise. Most blocks are all open.
template <int kCount>
ORLIX_INLINE void ClassifyBlock(const NodeRows& at, int first, double openAbove, double insideUpTo,
                                std::uint8_t* classes) {
  std::uint64_t notOpen[kCount], any = 0;
  for (int l = 0; l < kCount; ++l) {
    notOpen[l] = Least(at, first + l) > openAbove ? 0 : 1;
    any |= notOpen[l];
  }
  if (any == 0) {
    std::memset(classes + first, kCornersOpen, kCount);
    return;
  }
  for (int l = 0; l < kCount; ++l) notOpen[l] += Most(at, first + l) > insideUpTo ? notOpen[l] : 0;
  for (int l = 0; l < kCount; ++l) classes[first + l] = static_cast<std::uint8_t>(notOpen[l]);
}

ORLIX_MULTIVERSION void ClassifyRow(const double* p, std::int64_t dx, std::int64_t dy, std::int64_t dz, int count,
                                    double openAbove, double insideUpTo, std::uint8_t* __restrict classes) {
  const double* q = p + dz;
  const NodeRows at{p, p + dx, p + dy, p + dx + dy, q, q + dx, q + dy, q + dx + dy};
  // The last block overlaps the one before it.
  for (int i = 0; i < count - kBlock; i += kBlock) ClassifyBlock<kBlock>(at, i, openAbove, insideUpTo, classes);
  if (count >= kBlock) return ClassifyBlock<kBlock>(at, count - kBlock, openAbove, insideUpTo, classes);
  for (int i = 0; i < count; ++i) ClassifyBlock<1>(at, i, openAbove, insideUpTo, classes);
}

}  // namespace

void CornerClasses::Find(const double* p, const CornerSteps& steps, int count, double openAbove, double insideUpTo) {
  ClassifyRow(p, steps.x, steps.y, steps.z, count, openAbove, insideUpTo, classes_.data());
}

}  // namespace orlix
