#include "fluids/boundary/SolidView.h"

#include "fluids/grids/TrilinearGradient.h"

namespace orlix {

Vec3D SolidView::GradientIndex(const Vec3D& p) const { return HasData() ? TrilinearGradient(grid_, p) : Vec3D(); }

bool SolidView::IsInOpenBorder(const Vec3D& p) const {
  for (int axis = 0; axis < 3; ++axis) {
    if (p[axis] < cellSize_ && (closedFaces_ & ClosedLow(axis)) == 0) return true;
    if (p[axis] > LastInner(axis) && (closedFaces_ & ClosedHigh(axis)) == 0) return true;
  }
  return false;
}

bool SolidView::IsInBorder(const Vec3D& p) const {
  for (int axis = 0; axis < 3; ++axis) {
    if (p[axis] < cellSize_ || p[axis] > LastInner(axis)) return true;
  }
  return false;
}

bool SolidView::IsOutsideDomain(const Vec3D& p) const {
  for (int axis = 0; axis < 3; ++axis) {
    if (p[axis] < 0 || p[axis] > HighEnd(axis)) return true;
  }
  return false;
}

bool SolidView::ClampToDomain(Vec3D& p) const {
  bool moved = false;
  const float inset = 1.001f * cellSize_;
  for (int axis = 0; axis < 3; ++axis) {
    if (p[axis] < cellSize_) {
      p[axis] = inset;
      moved = true;
    } else if (p[axis] > LastInner(axis)) {
      p[axis] = HighEnd(axis) - inset;
      moved = true;
    }
  }
  return moved;
}

bool SolidView::ResolveCollision(Vec3D& p, double margin) const {
  if (!HasData()) return true;
  const bool clamped = ClampToDomain(p);
  const double distance = DistanceLocal(p);
  if (!(distance < 0)) return clamped;
  p -= Normalized(GradientLocal(p)) * (distance + margin);
  return true;
}

void SolidView::WallContact(const Vec3D& p, SolidContact& contact, float margin) const {
  const float low = cellSize_ + margin;
  for (int axis = 0; axis < 3; ++axis) {
    const float high = HighEnd(axis) - low;
    const bool below = (closedFaces_ & ClosedLow(axis)) != 0 && p[axis] < low;
    const bool above = !below && (closedFaces_ & ClosedHigh(axis)) != 0 && p[axis] > high;
    if (!below && !above) continue;
    contact.hit = true;
    contact.normal[axis] = below ? 1 : -1;
    contact.position[axis] = below ? low : high;
    contact.depth = below ? low - p[axis] : p[axis] - high;
  }
}

bool SolidView::ResolveContact(const Vec3D& p, SolidContact& contact, double margin) const {
  if (!HasData()) return true;
  contact = SolidContact();
  contact.position = p;
  WallContact(p, contact, static_cast<float>(margin));
  contact.depth = DistanceLocal(contact.position) - margin;
  if (static_cast<float>(contact.depth) < 0.0f) {
    contact.hit = true;
    contact.normal = Normalized(GradientLocal(contact.position));
    contact.position -= contact.normal * contact.depth;
  } else if (!contact.hit) {
    contact.normal = {0, 1, 0};
    contact.position = p;
  }
  return contact.hit;
}

bool SolidView::PushOutVector(const Vec3D& p, Vec3D& correction) const {
  if (!HasData()) return true;
  bool corrected = false;
  const float inset = 1.001f * cellSize_;
  for (int axis = 0; axis < 3; ++axis) {
    if (p[axis] < cellSize_) {
      correction[axis] = inset - p[axis];
      corrected = true;
    } else if (p[axis] > LastInner(axis)) {
      correction[axis] = p[axis] - HighEnd(axis) - inset;
      corrected = true;
    }
  }
  const double distance = DistanceLocal(p);
  if (!(distance < 0)) return corrected;
  correction -= Normalized(GradientLocal(p)) * (0.25 * cellSize_ + distance);
  return true;
}

std::uint8_t SolidView::SolidCornerMask(const Vec3D& p) const {
  if (!HasData()) return 0;
  const Vec3D index = IndexOf(p);
  int cell[3];
  for (int axis = 0; axis < 3; ++axis) {
    if (!(index[axis] > -1.0 && index[axis] < grid_.dims[axis] - 1)) return 0;
    cell[axis] = static_cast<int>(index[axis]);
  }
  std::uint8_t mask = 0;
  for (int corner = 0; corner < 8; ++corner) {
    const double distance = grid_(cell[0] + (corner >> 2), cell[1] + (corner >> 1 & 1), cell[2] + (corner & 1));
    if (distance < 0) mask = static_cast<std::uint8_t>(mask | 1 << corner);
  }
  return mask;
}

}  // namespace orlix
