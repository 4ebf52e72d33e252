#pragma once
// Walks over cells, particles and meshes, whole or divided among workers. They are made of plain loops over the
// engine's memory: nothing is called per cell.
//
//   cells.InitThreads(channel, server->GetThreadCount(), false);               // Setup
//   const int thread = data.threadIndex;                                       // Process, on each worker
//   if (!cells.BeginThread(thread, false)) return true;                        // more workers than layers
//   do cells.SetValue(thread, 0.9 * cells.GetValue(thread)); while (cells.Next(thread));
//
// What a worker is given doesn't matter for the result as long as a cell depends on no cell that another one writes.

#include <algorithm>

#include "ZQObjects.h"

namespace ZQAPI {

constexpr std::int32_t kMostThreads = 64;

// A walk over the samples of Grids grids of the same cells.
template <class Value, int Grids>
class ZQCellIterator {
 public:
  // The whole grid, one cursor, which is that of thread 0. False when there is no cell.
  bool InitGrids(const ZQGrid (&grids)[Grids], std::int32_t threadCount, bool wholeGrid) {
    std::copy(grids, grids + Grids, grids_);
    nx_ = grids[0].nx, ny_ = grids[0].ny, nz_ = grids[0].nz;
    for (const ZQGrid& grid : grids) {
      if (!grid) return false;
      nx_ = std::min(nx_, grid.nx), ny_ = std::min(ny_, grid.ny), nz_ = std::min(nz_, grid.nz);
    }
    border_ = wholeGrid ? 0 : 1;
    if (nx_ <= 2 * border_ || ny_ <= 2 * border_) return false;
    slices_ = std::max(0, std::min({nz_ - 2 * border_, threadCount, kMostThreads}));
    for (std::int32_t thread = 0; thread < slices_; ++thread) BeginThread(thread, false);
    return slices_ > 0;
  }

  // Places the cursor on the first or the last cell of the worker's layers. False for a worker without any.
  bool BeginThread(std::int32_t thread, bool fromEnd) {
    if (thread < 0 || thread >= slices_) return false;
    Cursor& c = cursors_[thread];
    const std::int32_t layers = (nz_ - 2 * border_) / slices_;
    c.low = border_ + thread * layers;
    c.high = thread == slices_ - 1 ? nz_ - border_ : c.low + layers;
    c.i = fromEnd ? nx_ - border_ - 1 : border_;
    c.j = fromEnd ? ny_ - border_ - 1 : border_;
    c.k = fromEnd ? c.high - 1 : c.low;
    return true;
  }
  // x first, then y, then z; false at the end.
  bool Next(std::int32_t thread) {
    Cursor& c = cursors_[thread];
    if (++c.i < nx_ - border_) return true;
    c.i = border_;
    if (++c.j < ny_ - border_) return true;
    c.j = border_;
    return ++c.k < c.high;
  }
  bool Previous(std::int32_t thread) {
    Cursor& c = cursors_[thread];
    if (--c.i >= border_) return true;
    c.i = nx_ - border_ - 1;
    if (--c.j >= border_) return true;
    c.j = ny_ - border_ - 1;
    return --c.k >= c.low;
  }
  // Of the one-cursor form.
  void Skip(std::int32_t count) {
    for (; count > 0 && IsValid(); --count) Next(0);
    for (; count < 0 && IsValid(); ++count) Previous(0);
  }
  bool SkipAndTest(std::int32_t count) { return Skip(count), IsValid(); }
  bool IsValid() const { return slices_ > 0 && cursors_[0].k >= cursors_[0].low && cursors_[0].k < cursors_[0].high; }

  Vec3D GetPosition(std::int32_t thread) const {
    const Cursor& c = cursors_[thread];
    return grids_[0].Position(c.i, c.j, c.k);
  }

 protected:
  // Limited to the grid's cells.
  std::int64_t At(int grid, std::int32_t thread, std::int32_t dx, std::int32_t dy, std::int32_t dz) const {
    const Cursor& c = cursors_[thread];
    return grids_[grid].Index(std::clamp(c.i + dx, 0, nx_ - 1), std::clamp(c.j + dy, 0, ny_ - 1),
                              std::clamp(c.k + dz, 0, nz_ - 1));
  }
  std::int64_t At(int grid, std::int32_t thread) const {
    const Cursor& c = cursors_[thread];
    return grids_[grid].Index(c.i, c.j, c.k);
  }

  ZQGrid grids_[Grids];

 private:
  struct alignas(64) Cursor {
    std::int32_t i = 0, j = 0, k = 0, low = 0, high = 0;
  };
  std::int32_t nx_ = 0, ny_ = 0, nz_ = 0, border_ = 0, slices_ = 0;
  Cursor cursors_[kMostThreads];
};

class ZQScalarCellIterator : public ZQCellIterator<double, 1> {
 public:
  // To be changed, too; false also where a cache plays the channel.
  bool Init(ZQScalarChannel* channel) { return InitThreads(channel, 1, true); }
  bool InitThreads(ZQScalarChannel* channel, std::int32_t threadCount, bool wholeGrid) {
    return channel && InitGrids({channel->EditGrid()}, threadCount, wholeGrid);
  }
  double GetValue(std::int32_t thread) const { return grids_[0].values[At(0, thread)]; }
  void SetValue(std::int32_t thread, double value) { grids_[0].values[At(0, thread)] = value; }
  // At an offset of -1, 0 or 1 in each axis; beyond the grid the value at its border.
  double GetNeighbour(std::int32_t thread, std::int16_t dx, std::int16_t dy, std::int16_t dz) const {
    return grids_[0].values[At(0, thread, dx, dy, dz)];
  }
};

// The components of one sample; on a solver's velocity those of the cell's low faces.
class ZQVectorCellIterator : public ZQCellIterator<Vec3D, 3> {
 public:
  bool Init(ZQVectorChannel* channel) { return InitThreads(channel, 1, true); }
  bool InitThreads(ZQVectorChannel* channel, std::int32_t threadCount, bool wholeGrid) {
    return channel &&
           InitGrids({channel->EditGrid(0), channel->EditGrid(1), channel->EditGrid(2)}, threadCount, wholeGrid);
  }
  Vec3D GetValue(std::int32_t thread) const {
    return {grids_[0].values[At(0, thread)], grids_[1].values[At(1, thread)], grids_[2].values[At(2, thread)]};
  }
  void SetValue(std::int32_t thread, const Vec3D& value) {
    grids_[0].values[At(0, thread)] = value.x;
    grids_[1].values[At(1, thread)] = value.y;
    grids_[2].values[At(2, thread)] = value.z;
  }
  Vec3D GetNeighbour(std::int32_t thread, std::int16_t dx, std::int16_t dy, std::int16_t dz) const {
    return {grids_[0].values[At(0, thread, dx, dy, dz)], grids_[1].values[At(1, thread, dx, dy, dz)],
            grids_[2].values[At(2, thread, dx, dy, dz)]};
  }
};

// The distances of a volume, at the corners of its cells; to be read.
class ZQVolumeCellIterator : public ZQCellIterator<double, 1> {
 public:
  bool Init(const ZQVolume* volume) { return InitThreads(volume, 1, true); }
  bool InitThreads(const ZQVolume* volume, std::int32_t threadCount, bool wholeGrid) {
    return volume && InitGrids({volume->GetLevelSet()}, threadCount, wholeGrid);
  }
  double GetValue(std::int32_t thread) const { return grids_[0].values[At(0, thread)]; }
  double GetNeighbour(std::int32_t thread, std::int16_t dx, std::int16_t dy, std::int16_t dz) const {
    return grids_[0].values[At(0, thread, dx, dy, dz)];
  }
};

// A worker's share of particles: whole runs of 256, so that no two workers write to one word of presence bits.
inline void ShareOf(std::int32_t count, std::int32_t thread, std::int32_t threadCount, std::int32_t& begin,
                    std::int32_t& end) {
  constexpr std::int64_t kGrain = 256;
  const std::int64_t grains = (count + kGrain - 1) / kGrain;
  begin = static_cast<std::int32_t>(std::min<std::int64_t>(count, grains * thread / threadCount * kGrain));
  end = static_cast<std::int32_t>(std::min<std::int64_t>(count, grains * (thread + 1) / threadCount * kGrain));
}

// f(const ZQParticleRows&) for the worker's share of a group's particles, in order. The fast way over particles.
template <class F>
void ForEachRows(ZQParticleGroup* group, std::int32_t kind, const ProcessData& data, F&& f) {
  std::int32_t begin = 0, end = 0;
  ShareOf(group->GetCount(kind), data.threadIndex, data.threadCount, begin, end);
  ChunkData chunk;
  while (begin < end && !data.TestBreak() && group->GetChunk(kind, begin, chunk)) {
    ZQParticleRows rows(group, kind, chunk);
    rows.begin = begin - chunk.first;
    rows.end = std::min(end - chunk.first, chunk.count);
    f(static_cast<const ZQParticleRows&>(rows));
    begin = chunk.first + rows.end;
  }
}

// f(const PlaceBatch&, int row) for runs of rows: row is that of element 0. What ZQServer::Weigh takes.
template <class F>
void ForEachBatch(const ZQParticleRows& rows, std::int32_t threadIndex, F&& f) {
  double x[kBatch], y[kBatch], z[kBatch];
  for (std::int32_t row = rows.begin; row < rows.end; row += kBatch) {
    PlaceBatch places;
    places.count = std::min(kBatch, rows.end - row);
    places.threadIndex = threadIndex;
    places.isParticle = true;
    places.kind = rows.kind, places.group = rows.group;
    places.firstIndex = rows.first + row;
    for (std::int32_t n = 0; n < places.count; ++n) {
      const Vec3D& p = rows.Positions()[row + n];
      x[n] = p.x, y[n] = p.y, z[n] = p.z;
    }
    places.x = x, places.y = y, places.z = z;
    f(static_cast<const PlaceBatch&>(places), row);
  }
}

// Particles one by one, a range for each thread.
class ZQParticleIterator {
 public:
  ZQParticleIterator(ZQParticleGroup* group, std::int32_t kind, std::int32_t threadCount)
      : group_(group), kind_(kind), threads_(std::clamp(threadCount, 1, kMostThreads)) {
    for (std::int32_t thread = 0; thread < threads_; ++thread) {
      ShareOf(group->GetCount(kind), thread, threads_, ranges_[thread].begin, ranges_[thread].end);
      Reset(thread);
    }
  }
  void Reset(std::int32_t thread) { ranges_[thread].at = ranges_[thread].begin; }
  ZQParticle Get(std::int32_t thread) const { return {group_, kind_, ranges_[thread].at}; }
  ZQParticle GetFirst(std::int32_t thread) const { return {group_, kind_, ranges_[thread].begin}; }
  ZQParticle GetLast(std::int32_t thread) const { return {group_, kind_, ranges_[thread].end - 1}; }
  bool Next(std::int32_t thread) { return ++ranges_[thread].at < ranges_[thread].end; }
  bool Previous(std::int32_t thread) { return --ranges_[thread].at >= ranges_[thread].begin; }
  void Skip(std::int32_t thread, std::int32_t n) { ranges_[thread].at += n; }
  bool SkipAndTest(std::int32_t thread, std::int32_t n) { return Skip(thread, n), IsValid(thread); }
  // The cursor stands on a particle that lives.
  bool IsValid(std::int32_t thread) const {
    const Range& range = ranges_[thread];
    return range.at >= range.begin && range.at < range.end && Get(thread).IsAlive();
  }

 private:
  struct alignas(64) Range {
    std::int32_t begin = 0, end = 0, at = 0;
  };
  ZQParticleGroup* group_;
  std::int32_t kind_, threads_;
  Range ranges_[kMostThreads];
};

inline ZQParticleIterator ZQParticleGroup::GetIterator(std::int32_t kind, std::int32_t threadCount) {
  return {this, kind, threadCount};
}

// The points and the polygons of a mesh, each with a cursor.
class ZQMeshIterator {
 public:
  bool Attach(const ZQMesher* mesher) {
    mesh_ = mesher ? mesher->GetMesh() : ZQMesh();
    Reset(true, true);
    return mesh_.points != nullptr;
  }
  void Reset(bool polygons, bool points) {
    if (polygons) polygon_ = 0;
    if (points) point_ = 0;
  }
  Vec3D GetPoint() const { return GetPointAt(point_); }
  Vec3D GetPointAt(std::int32_t n) const { return mesh_.points[n]; }
  // Three numbers of points.
  const std::int32_t* GetPolygon() const { return GetPolygonAt(polygon_); }
  const std::int32_t* GetPolygonAt(std::int32_t n) const { return mesh_.corners + 3 * std::int64_t(n); }
  bool Next(bool polygons) { return SkipAndTest(polygons, 1); }
  bool Previous(bool polygons) { return SkipAndTest(polygons, -1); }
  void Skip(bool polygons, std::int32_t n) { (polygons ? polygon_ : point_) += n; }
  bool SkipAndTest(bool polygons, std::int32_t n) { return Skip(polygons, n), IsValid(polygons); }
  bool IsValid(bool polygons) const {
    const std::int32_t at = polygons ? polygon_ : point_;
    return at >= 0 && at < (polygons ? mesh_.polygonCount : mesh_.pointCount);
  }

 private:
  ZQMesh mesh_;
  std::int32_t polygon_ = 0, point_ = 0;
};

}  // namespace ZQAPI
