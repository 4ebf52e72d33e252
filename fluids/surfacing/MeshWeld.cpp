#include "fluids/surfacing/MeshWeld.h"

#include <algorithm>
#include <atomic>
#include <deque>
#include <unordered_map>

#include "host/threads/ForLayers.h"

namespace orlix {

namespace {

constexpr std::int32_t kNone = -1;
constexpr int kShare = 1 << 14;  // triangles of a piece of work

bool Holds(const VecInt3D& t, std::int32_t v) { return t.x == v || t.y == v || t.z == v; }

// The corner that is neither u nor v.
std::int32_t Third(const VecInt3D& t, std::int32_t u, std::int32_t v) {
  for (int n = 0; n < 3; ++n) {
    if (t[n] != u && t[n] != v) return t[n];
  }
  return kNone;
}

// Repairs the surroundings of the triangles that need it; all else isn't looked at.
class LocalRepair {
 public:
  // known: the points around which all triangles will be added.
  LocalRepair(const WeldSettings& settings, const std::vector<std::uint8_t>& known, TriMeshSTL& mesh)
      : least_(settings.leastArea), tolerance2_(settings.tolerance * settings.tolerance), known_(known), mesh_(mesh) {}

  // A triangle around the places to repair.
  void Add(std::int32_t triangle) {
    const VecInt3D& t = Triangle(triangle);
    for (int n = 0; n < 3; ++n) around_[t[n]].push_back(triangle);
  }
  // True when something changed.
  bool Repair(const std::vector<std::int32_t>& bad) {
    open_.assign(bad.begin(), bad.end());
    // Each step takes a triangle away or makes one rounder; the bound is for meshes that are nothing but needles.
    std::size_t left = 64 * bad.size() + 1024;
    while (!open_.empty() && left-- > 0) {
      const std::int32_t t = open_.front();
      open_.pop_front();
      if (!IsDead(t)) changed_ |= Mend(t);
    }
    return changed_;
  }
  static bool IsDead(const VecInt3D& t) { return t.x == t.y; }

 private:
  VecInt3D& Triangle(std::int32_t t) { return mesh_.Triangles()[static_cast<std::size_t>(t)]; }
  const Vec3D& Point(std::int32_t p) const { return mesh_.Points()[static_cast<std::size_t>(p)]; }
  bool IsDead(std::int32_t t) { return IsDead(Triangle(t)); }
  double Length2(std::int32_t a, std::int32_t b) const {
    const Vec3D d = Point(a) - Point(b);
    return Dot(d, d);
  }

  bool IsKnown(std::int32_t point) const { return known_[static_cast<std::size_t>(point)] != 0; }
  double Area(const VecInt3D& t) const { return 0.5 * Length(Cross(Point(t.y) - Point(t.x), Point(t.z) - Point(t.x))); }

  bool Mend(std::int32_t triangle) {
    const VecInt3D t = Triangle(triangle);
    int shortest = 0, longest = 0;
    double length2[3];
    for (int n = 0; n < 3; ++n) {
      length2[n] = Length2(t[n], t[(n + 1) % 3]);
      if (length2[n] < length2[shortest]) shortest = n;
      if (length2[n] > length2[longest]) longest = n;
    }
    const bool isShort = length2[shortest] < tolerance2_;
    if (!isShort && !(Area(t) < least_)) return false;
    const std::int32_t a = t[shortest], b = t[(shortest + 1) % 3];
    // A needle, or what is small all round, loses its shortest side; a triangle that is flat along its longest side
    // hands that on.
    if (isShort || length2[shortest] < 0.01 * length2[longest] || length2[longest] < 100 * least_) {
      if (Collapse(std::min(a, b), std::max(a, b))) return true;
      if (isShort) return false;
    }
    if (Flip(triangle, t[longest], t[(longest + 1) % 3])) return true;
    return length2[shortest] < 1e4 * least_ && Collapse(std::min(a, b), std::max(a, b));
  }

  // The live triangles around a point.
  std::vector<std::int32_t>& Around(std::int32_t point) {
    std::vector<std::int32_t>& list = around_[point];
    std::erase_if(list, [&](std::int32_t t) { return IsDead(t) || !Holds(Triangle(t), point); });
    return list;
  }
  std::vector<std::int32_t> Neighbours(std::int32_t point) {
    std::vector<std::int32_t> found;
    for (const std::int32_t t : Around(point)) {
      for (int n = 0; n < 3; ++n) {
        if (Triangle(t)[n] != point) found.push_back(Triangle(t)[n]);
      }
    }
    std::sort(found.begin(), found.end());
    return found;
  }
  // Neighbours come twice, but once at an open border.
  static bool IsBorder(const std::vector<std::int32_t>& neighbours) {
    for (std::size_t n = 0; n < neighbours.size(); ++n) {
      const bool before = n > 0 && neighbours[n - 1] == neighbours[n];
      const bool after = n + 1 < neighbours.size() && neighbours[n + 1] == neighbours[n];
      if (!before && !after) return true;
    }
    return false;
  }

  bool Collapse(std::int32_t keep, std::int32_t lose) {
    if (!IsKnown(keep) || !IsKnown(lose)) return false;
    const std::vector<std::int32_t> a = Neighbours(keep), b = Neighbours(lose);
    int sharing = 0;
    for (const std::int32_t t : Around(keep)) sharing += Holds(Triangle(t), lose);
    std::vector<std::int32_t> common;
    std::set_intersection(a.begin(), a.end(), b.begin(), b.end(), std::back_inserter(common));
    common.erase(std::unique(common.begin(), common.end()), common.end());
    if (static_cast<int>(common.size()) != sharing) return false;
    if (sharing == 2 && IsBorder(a) && IsBorder(b)) return false;
    if (HaveTriangleInCommon(keep, lose)) return RemoveTetrahedron(keep, lose);
    for (const std::int32_t t : Around(lose)) {
      VecInt3D& corners = Triangle(t);
      if (Holds(corners, keep)) {
        corners = {keep, keep, keep};
      } else {
        for (int n = 0; n < 3; ++n) {
          if (corners[n] == lose) corners[n] = keep;
        }
        around_[keep].push_back(t);
        open_.push_back(t);
      }
    }
    around_[lose].clear();
    return true;
  }

  // The same edge lies across from both points: only in a tetrahedron.
  bool HaveTriangleInCommon(std::int32_t keep, std::int32_t lose) {
    for (const std::int32_t s : Around(keep)) {
      if (Holds(Triangle(s), lose)) continue;
      for (const std::int32_t t : Around(lose)) {
        const VecInt3D &p = Triangle(s), &q = Triangle(t);
        int shared = 0;
        for (int n = 0; n < 3; ++n) shared += p[n] != keep && Holds(q, p[n]);
        if (shared == 2) return true;
      }
    }
    return false;
  }
  bool RemoveTetrahedron(std::int32_t keep, std::int32_t lose) {
    if (Around(keep).size() != 3 || Around(lose).size() != 3) return false;
    for (const std::int32_t point : Neighbours(keep)) {
      if (!IsKnown(point) || Around(point).size() != 3) return false;
    }
    std::vector<std::int32_t> all = Around(keep);
    const auto& others = Around(lose);
    all.insert(all.end(), others.begin(), others.end());
    for (const std::int32_t t : all) Triangle(t) = {keep, keep, keep};
    return true;
  }

  // The edge from u to v of a triangle becomes the one between the two corners across from it.
  bool Flip(std::int32_t triangle, std::int32_t u, std::int32_t v) {
    if (!IsKnown(u)) return false;
    std::int32_t other = kNone;
    for (const std::int32_t t : Around(u)) {
      if (t != triangle && Holds(Triangle(t), v)) {
        if (other != kNone) return false;
        other = t;
      }
    }
    if (other == kNone) return false;
    const std::int32_t w = Third(Triangle(triangle), u, v), x = Third(Triangle(other), u, v);
    if (w == x || !IsKnown(w)) return false;
    const std::vector<std::int32_t> near = Neighbours(w);
    if (std::binary_search(near.begin(), near.end(), x)) return false;
    const VecInt3D first{w, u, x}, second{w, x, v};
    if (!(std::min(Area(first), Area(second)) > Area(Triangle(triangle)))) return false;
    Triangle(triangle) = first;
    Triangle(other) = second;
    around_[w].push_back(other);
    around_[x].push_back(triangle);
    open_.push_back(triangle);
    open_.push_back(other);
    return true;
  }

  double least_, tolerance2_;
  bool changed_ = false;
  const std::vector<std::uint8_t>& known_;
  TriMeshSTL& mesh_;
  std::unordered_map<std::int32_t, std::vector<std::int32_t>> around_;
  std::deque<std::int32_t> open_;
};

// The triangles for which test(t) holds, in order.
template <class Test>
std::vector<std::int32_t> FindTriangles(const TriMeshSTL& mesh, WorkerPool& pool, Test&& test) {
  const int shares = (mesh.TriangleCount() + kShare - 1) / kShare;
  std::vector<std::vector<std::int32_t>> found(static_cast<std::size_t>(shares));
  ForLayers(pool, 0, shares, [&](int share) {
    const int end = std::min(mesh.TriangleCount(), (share + 1) * kShare);
    for (int t = share * kShare; t < end; ++t) {
      if (test(mesh.Triangles()[static_cast<std::size_t>(t)])) found[static_cast<std::size_t>(share)].push_back(t);
    }
  });
  std::vector<std::int32_t> all;
  for (const auto& part : found) all.insert(all.end(), part.begin(), part.end());
  return all;
}

// Of all triangles, or of some, in order.
std::vector<std::int32_t> FindBad(const WeldSettings& settings, WorkerPool& pool, const TriMeshSTL& mesh,
                                  const std::vector<std::int32_t>* among) {
  const double tolerance2 = settings.tolerance * settings.tolerance,
               area2 = 4 * settings.leastArea * settings.leastArea;
  const auto& points = mesh.Points();
  const auto isBad = [&](const VecInt3D& t) {
    if (LocalRepair::IsDead(t)) return false;
    const Vec3D& a = points[static_cast<std::size_t>(t.x)];
    const Vec3D ab = points[static_cast<std::size_t>(t.y)] - a, ac = points[static_cast<std::size_t>(t.z)] - a;
    const Vec3D bc = ac - ab, cross = Cross(ab, ac);
    return std::min({Dot(ab, ab), Dot(ac, ac), Dot(bc, bc)}) < tolerance2 || Dot(cross, cross) < area2;
  };
  if (!among) return FindTriangles(mesh, pool, isBad);
  std::vector<std::int32_t> bad;
  std::copy_if(among->begin(), among->end(), std::back_inserter(bad),
               [&](std::int32_t t) { return isBad(mesh.Triangles()[static_cast<std::size_t>(t)]); });
  return bad;
}

// True when something changed. around: the triangles that may have.
bool RepairAround(const std::vector<std::int32_t>& bad, const WeldSettings& settings, WorkerPool& pool,
                  TriMeshSTL& mesh, std::vector<std::int32_t>& around) {
  // The points of the bad triangles and their neighbours.
  std::vector<std::uint8_t> ring(static_cast<std::size_t>(mesh.PointCount()), 0);
  const auto at = [&](std::int32_t p) -> std::uint8_t& { return ring[static_cast<std::size_t>(p)]; };
  for (const std::int32_t t : bad) {
    const VecInt3D& corners = mesh.Triangles()[static_cast<std::size_t>(t)];
    for (int n = 0; n < 3; ++n) at(corners[n]) = 1;
  }
  for (std::uint8_t reach = 1; reach <= 2; ++reach) {
    around = FindTriangles(
        mesh, pool, [&](const VecInt3D& t) { return (at(t.x) || at(t.y) || at(t.z)) && !LocalRepair::IsDead(t); });
    if (reach == 2) break;
    for (const std::int32_t t : around) {
      const VecInt3D& corners = mesh.Triangles()[static_cast<std::size_t>(t)];
      for (int n = 0; n < 3; ++n) at(corners[n]) = 1;
    }
  }
  LocalRepair repair(settings, ring, mesh);
  for (const std::int32_t t : around) repair.Add(t);
  return repair.Repair(bad);
}

bool UsesAllPoints(WorkerPool& pool, const TriMeshSTL& mesh) {
  std::vector<std::uint8_t> isUsed(static_cast<std::size_t>(mesh.PointCount()), 0);
  const int shares = (mesh.TriangleCount() + kShare - 1) / kShare;
  ForLayers(pool, 0, shares, [&](int share) {
    const int end = std::min(mesh.TriangleCount(), (share + 1) * kShare);
    for (int t = share * kShare; t < end; ++t) {
      for (int n = 0; n < 3; ++n) {
        std::atomic_ref used(isUsed[static_cast<std::size_t>(mesh.Triangles()[static_cast<std::size_t>(t)][n])]);
        if (used.load(std::memory_order_relaxed) == 0) used.store(1, std::memory_order_relaxed);
      }
    }
  });
  return std::find(isUsed.begin(), isUsed.end(), 0) == isUsed.end();
}

void RemoveUnusedPoints(WorkerPool& pool, TriMeshSTL& mesh) {
  if (UsesAllPoints(pool, mesh)) return;
  std::vector<std::int32_t> number(static_cast<std::size_t>(mesh.PointCount()), kNone);
  for (const VecInt3D& t : mesh.Triangles()) {
    for (int n = 0; n < 3; ++n) number[static_cast<std::size_t>(t[n])] = 0;
  }
  std::int32_t used = 0;
  for (std::size_t p = 0; p < number.size(); ++p) {
    if (number[p] == kNone) continue;
    mesh.Points()[static_cast<std::size_t>(used)] = mesh.Points()[p];
    number[p] = used++;
  }
  mesh.Points().resize(static_cast<std::size_t>(used));
  for (VecInt3D& t : mesh.Triangles()) {
    for (int n = 0; n < 3; ++n) t[n] = number[static_cast<std::size_t>(t[n])];
  }
}

}  // namespace

void WeldMesh(const WeldSettings& settings, WorkerPool& pool, TriMeshSTL& mesh) {
  // What a round moves on to its neighbours is left to the next one.
  constexpr int kMostRounds = 4;
  std::vector<std::int32_t> around;
  bool changed = false;
  for (int round = 0; round < kMostRounds; ++round) {
    const std::vector<std::int32_t> bad = FindBad(settings, pool, mesh, round > 0 ? &around : nullptr);
    if (bad.empty() || !RepairAround(bad, settings, pool, mesh, around)) break;
    changed = true;
  }
  if (changed) std::erase_if(mesh.Triangles(), [](const VecInt3D& t) { return LocalRepair::IsDead(t); });
  RemoveUnusedPoints(pool, mesh);
}

}  // namespace orlix
