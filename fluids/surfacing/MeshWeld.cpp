#include "fluids/surfacing/MeshWeld.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <deque>
#include <memory_resource>

#include "fluids/level_sets/TriangleLanes.h"
#include "fluids/surfacing/BitRows.h"
#include "globals/Multiversion.h"
#include "host/threads/ForLayers.h"

namespace orlix {

namespace {

constexpr std::int32_t kNone = -1;
constexpr int kShare = 1 << 14;  // triangles of a piece of work

// A bit for each point of a mesh.
class PointSet {
 public:
  explicit PointSet(const TriMeshSTL& mesh, bool all = false) : bits_({mesh.PointCount(), 1, 1}) {
    for (int w = 0; all && w < bits_.words(); ++w) bits_.Row(0, 0)[w] = WordOfRange(w, 0, mesh.PointCount());
  }
  bool Has(std::int32_t point) const { return bits_.Has(point, 0, 0); }
  bool HasAny(const VecInt3D& t) const { return Has(t.x) || Has(t.y) || Has(t.z); }
  void Add(const VecInt3D& t) {
    for (int n = 0; n < 3; ++n) Word(t[n]) |= Bit(t[n]);
  }
  void Remove(std::int32_t point) { Word(point) &= ~Bit(point); }
  template <class F>
  void ForEach(F&& f) const {
    for (int w = 0; w < bits_.words(); ++w) ForSetBits(bits_.Row(0, 0)[w], 64 * w, f);
  }
  // From any worker.
  void AddShared(std::int32_t point) {
    std::atomic_ref word(Word(point));
    if ((word.load(std::memory_order_relaxed) & Bit(point)) == 0) word.fetch_or(Bit(point), std::memory_order_relaxed);
  }
  // How many there are; from here on each has a number, in their order.
  std::int32_t Count() { return static_cast<std::int32_t>(bits_.NumberRow(0, 0, 0)); }
  ORLIX_INLINE std::int32_t Number(std::int32_t point) const {
    return static_cast<std::int32_t>(bits_.Number(point, 0, 0));
  }

 private:
  static std::uint64_t Bit(std::int32_t point) { return std::uint64_t(1) << (point % 64); }
  std::uint64_t& Word(std::int32_t point) { return bits_.Row(0, 0)[point / 64]; }

  BitRows bits_;
};

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
  LocalRepair(const WeldSettings& settings, PointSet& known, TriMeshSTL& mesh)
      : least_(settings.leastArea), tolerance2_(settings.tolerance * settings.tolerance), known_(known), mesh_(mesh) {
    const std::int32_t count = known.Count();
    around_.reserve(static_cast<std::size_t>(count));
    for (std::int32_t n = 0; n < count; ++n) around_.emplace_back(&memory_).reserve(kUsual);
  }

  // A triangle around the places to repair.
  void Add(std::int32_t triangle) {
    const VecInt3D& t = Triangle(triangle);
    for (int n = 0; n < 3; ++n) AddAround(t[n], triangle);
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
  // Takes away the known points that have lost their triangles.
  void RemoveUnused(PointSet& used) {
    known_.ForEach([&](int point) {
      if (Around(point).empty()) used.Remove(point);
    });
  }

 private:
  using Triangles = std::pmr::vector<std::int32_t>;
  static constexpr int kUsual = 8;  // triangles around a point

  VecInt3D& Triangle(std::int32_t t) { return mesh_.Triangles()[static_cast<std::size_t>(t)]; }
  const Vec3D& Point(std::int32_t p) const { return mesh_.Points()[static_cast<std::size_t>(p)]; }
  bool IsDead(std::int32_t t) { return IsDead(Triangle(t)); }
  double Length2(std::int32_t a, std::int32_t b) const {
    const Vec3D d = Point(a) - Point(b);
    return Dot(d, d);
  }

  bool IsKnown(std::int32_t point) const { return known_.Has(point); }
  Triangles& ListOf(std::int32_t point) { return around_[static_cast<std::size_t>(known_.Number(point))]; }
  void AddAround(std::int32_t point, std::int32_t triangle) {
    if (IsKnown(point)) ListOf(point).push_back(triangle);
  }
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

  // The live triangles around a known point.
  Triangles& Around(std::int32_t point) {
    Triangles& list = ListOf(point);
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
        AddAround(keep, t);
        open_.push_back(t);
      }
    }
    ListOf(lose).clear();
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
    Triangles all = Around(keep);
    const Triangles& others = Around(lose);
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
    AddAround(w, other);
    AddAround(x, triangle);
    open_.push_back(triangle);
    open_.push_back(other);
    return true;
  }

  double least_, tolerance2_;
  bool changed_ = false;
  const PointSet& known_;
  TriMeshSTL& mesh_;
  std::pmr::monotonic_buffer_resource memory_;
  std::vector<Triangles> around_;  // of the known points
  std::deque<std::int32_t> open_;
};

// Calls f(first, end, share) for pieces of a list on all workers.
template <class F>
void ForShares(WorkerPool& pool, std::size_t count, F&& f) {
  const int shares = static_cast<int>((count + kShare - 1) / kShare);
  ForLayers(pool, 0, shares, [&](int share) {
    const std::size_t first = std::size_t(share) * kShare;
    f(first, std::min(first + kShare, count), share);
  });
}

// The triangles that find(first, end, list) adds to a list, in order.
template <class Find>
std::vector<std::int32_t> FindTriangles(const TriMeshSTL& mesh, WorkerPool& pool, Find&& find) {
  std::vector<std::vector<std::int32_t>> found(mesh.Triangles().size() / kShare + 1);
  ForShares(pool, mesh.Triangles().size(),
            [&](std::size_t first, std::size_t end, int share) { find(first, end, found[std::size_t(share)]); });
  std::vector<std::int32_t> all;
  for (const auto& part : found) all.insert(all.end(), part.begin(), part.end());
  return all;
}

// Those of [first, end) whose shortest edge or whose area (both squared, the latter times four) is below a least one.
ORLIX_MULTIVERSION void FindBadIn(const std::vector<Vec3D>& points, const std::vector<VecInt3D>& triangles,
                                  std::size_t first, std::size_t end, double edge2, double area2,
                                  std::vector<std::int32_t>& bad) {
  const auto square = [](Lanes & out, const LaneVector<Lanes>& v) __attribute__((always_inline)) {
    out = v.x * v.x + v.y * v.y + v.z * v.z;
  };
  for (std::size_t t = first; t < end; t += kLanes) {
    const VecInt3D* four[kLanes];
    for (std::size_t l = 0; l < kLanes; ++l) four[l] = &triangles[std::min(t + l, end - 1)];
    const auto corner = [&](LaneVector<Lanes> & out, int n) __attribute__((always_inline)) {
      const Vec3D* at[kLanes];
      for (int l = 0; l < kLanes; ++l) at[l] = &points[static_cast<std::size_t>((*four[l])[n])];
      out.x = Lanes{at[0]->x, at[1]->x, at[2]->x, at[3]->x}, out.y = Lanes{at[0]->y, at[1]->y, at[2]->y, at[3]->y};
      out.z = Lanes{at[0]->z, at[1]->z, at[2]->z, at[3]->z};
    };
    LaneVector<Lanes> a, b, c;
    corner(a, 0), corner(b, 1), corner(c, 2);
    const LaneVector<Lanes> ab{b.x - a.x, b.y - a.y, b.z - a.z}, ac{c.x - a.x, c.y - a.y, c.z - a.z};
    const LaneVector<Lanes> bc{ac.x - ab.x, ac.y - ab.y, ac.z - ab.z};
    const LaneVector<Lanes> cross{ab.y * ac.z - ab.z * ac.y, ab.z * ac.x - ab.x * ac.z, ab.x * ac.y - ab.y * ac.x};
    Lanes ab2, ac2, bc2, cross2;
    square(ab2, ab), square(ac2, ac), square(bc2, bc), square(cross2, cross);
    const auto isBad = (ab2 < edge2) | (ac2 < edge2) | (bc2 < edge2) | (cross2 < area2);
    if ((isBad[0] | isBad[1] | isBad[2] | isBad[3]) == 0) continue;
    for (std::size_t l = 0; l < kLanes && t + l < end; ++l) {
      if (isBad[l] && !LocalRepair::IsDead(triangles[t + l])) bad.push_back(static_cast<std::int32_t>(t + l));
    }
  }
}

// Of all triangles, or of some, in order.
std::vector<std::int32_t> FindBad(const WeldSettings& settings, WorkerPool& pool, const TriMeshSTL& mesh,
                                  const std::vector<std::int32_t>* among) {
  const double edge2 = settings.tolerance * settings.tolerance, area2 = 4 * settings.leastArea * settings.leastArea;
  if (!among) {
    return FindTriangles(mesh, pool, [&](std::size_t first, std::size_t end, std::vector<std::int32_t>& bad) {
      FindBadIn(mesh.Points(), mesh.Triangles(), first, end, edge2, area2, bad);
    });
  }
  std::vector<VecInt3D> some;
  for (const std::int32_t t : *among) some.push_back(mesh.Triangles()[static_cast<std::size_t>(t)]);
  std::vector<std::int32_t> bad;
  FindBadIn(mesh.Points(), some, 0, some.size(), edge2, area2, bad);
  for (std::int32_t& t : bad) t = (*among)[static_cast<std::size_t>(t)];
  return bad;
}

// True when something changed. around: the triangles that may have. used: loses points without triangles; or null.
bool RepairAround(const std::vector<std::int32_t>& bad, const WeldSettings& settings, WorkerPool& pool,
                  TriMeshSTL& mesh, std::vector<std::int32_t>& around, PointSet* used) {
  // The points of the bad triangles, and with their neighbours.
  PointSet centre(mesh), known(mesh);
  for (const std::int32_t t : bad) centre.Add(mesh.Triangles()[static_cast<std::size_t>(t)]);
  const auto findAround = [&](const PointSet& points) {
    return FindTriangles(mesh, pool, [&](std::size_t first, std::size_t end, std::vector<std::int32_t>& found) {
      for (std::size_t n = first; n < end; ++n) {
        const VecInt3D& t = mesh.Triangles()[n];
        if (points.HasAny(t) && !LocalRepair::IsDead(t)) found.push_back(static_cast<std::int32_t>(n));
      }
    });
  };
  for (const std::int32_t t : findAround(centre)) known.Add(mesh.Triangles()[static_cast<std::size_t>(t)]);
  around = findAround(known);
  LocalRepair repair(settings, known, mesh);
  for (const std::int32_t t : around) repair.Add(t);
  const bool changed = repair.Repair(bad);
  if (used) repair.RemoveUnused(*used);
  return changed;
}

// Takes elements out of a list; the order of the others stays. pack(from, end, to) writes what stays of [from, end) to
// the places from to on, which may be from, and gives their end.
template <class T, class Pack>
void PackList(WorkerPool& pool, std::vector<T>& list, Pack&& pack) {
  if (list.empty()) return;
  std::vector<std::size_t> stays((list.size() + kShare - 1) / kShare);
  ForShares(pool, list.size(), [&](std::size_t first, std::size_t end, int share) {
    T* from = list.data() + first;
    stays[std::size_t(share)] = static_cast<std::size_t>(pack(from, list.data() + end, from) - from);
  });
  // Each worker moves the elements of some shares. Those that go to places before its first share wait until the worker
  // before it has read these.
  const int parts = std::min<int>(pool.count(), static_cast<int>(stays.size()));
  std::array<std::vector<T>, WorkerPool::kMaxWorkers> waiting;
  std::vector<std::size_t> begin(stays.size() + 1, 0);
  for (std::size_t n = 0; n < stays.size(); ++n) begin[n + 1] = begin[n] + stays[n];
  const auto firstOf = [&](int part) { return stays.size() * std::size_t(part) / std::size_t(parts); };
  pool.Run(parts, [&](int part) {
    const std::size_t own = firstOf(part) * kShare;
    for (std::size_t n = firstOf(part); n < firstOf(part + 1); ++n) {
      const T* from = list.data() + n * kShare;
      const std::size_t early = std::min(own - std::min(own, begin[n]), stays[n]);
      waiting[std::size_t(part)].insert(waiting[std::size_t(part)].end(), from, from + early);
      T* to = list.data() + begin[n] + early;
      if (to != from + early) std::copy(from + early, from + stays[n], to);
    }
  });
  pool.Run(parts, [&](int part) {
    const std::vector<T>& early = waiting[std::size_t(part)];
    std::copy(early.begin(), early.end(), list.data() + begin[firstOf(part)]);
  });
  list.resize(begin.back());
}

ORLIX_MULTIVERSION VecInt3D* PackTriangles(const PointSet& used, const VecInt3D* from, const VecInt3D* end,
                                           VecInt3D* to) {
  for (; from != end; ++from) {
    if (LocalRepair::IsDead(*from)) continue;
    *to++ = {used.Number(from->x), used.Number(from->y), used.Number(from->z)};
  }
  return to;
}

// The points of all triangles that aren't dead.
void FindUsed(WorkerPool& pool, const TriMeshSTL& mesh, PointSet& used) {
  ForShares(pool, mesh.Triangles().size(), [&](std::size_t first, std::size_t end, int) {
    for (std::size_t t = first; t < end; ++t) {
      const VecInt3D& corners = mesh.Triangles()[t];
      if (LocalRepair::IsDead(corners)) continue;
      for (int n = 0; n < 3; ++n) used.AddShared(corners[n]);
    }
  });
}

// Removes dead triangles, and points that aren't used.
void RemoveUnused(WorkerPool& pool, bool someAreDead, PointSet& used, TriMeshSTL& mesh) {
  const bool usesAll = used.Count() == mesh.PointCount();
  if (usesAll && !someAreDead) return;
  PackList(pool, mesh.Triangles(),
           [&](const VecInt3D* from, const VecInt3D* end, VecInt3D* to) { return PackTriangles(used, from, end, to); });
  if (usesAll) return;
  PackList(pool, mesh.Points(), [&](const Vec3D* from, const Vec3D* end, Vec3D* to) {
    for (; from != end; ++from) {
      if (used.Has(static_cast<std::int32_t>(from - mesh.Points().data()))) *to++ = *from;
    }
    return to;
  });
}

}  // namespace

void WeldMesh(const WeldSettings& settings, WorkerPool& pool, TriMeshSTL& mesh) {
  // What a round moves on to its neighbours is left to the next one.
  constexpr int kMostRounds = 4;
  std::vector<std::int32_t> around;
  PointSet used(mesh, settings.allUsed);
  bool changed = false;
  for (int round = 0; round < kMostRounds; ++round) {
    const std::vector<std::int32_t> bad = FindBad(settings, pool, mesh, round > 0 ? &around : nullptr);
    if (bad.empty() || !RepairAround(bad, settings, pool, mesh, around, settings.allUsed ? &used : nullptr)) break;
    changed = true;
  }
  if (!settings.allUsed) FindUsed(pool, mesh, used);
  RemoveUnused(pool, changed, used, mesh);
}

}  // namespace orlix
