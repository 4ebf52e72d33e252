#include "fluids/grids/GridResampler.h"

#include <atomic>

namespace orlix {

template <class T>
bool GridResampler<T>::Init(const GridT* source, GridT* target, bool direct, Interpolation interpolation,
                            ResampleOperation operation, const VecInt3D& offset, bool wholeGrid, int workers) {
  if (!source || !target || source->count < 1) return false;
  source_ = source, target_ = target, direct_ = direct;
  interpolation_ = interpolation, operation_ = operation, offset_ = offset;
  return SplitLayers(slabs_, target->dims, wholeGrid, workers);
}

template <class T>
double GridResampler<T>::ValueFor(int i, int j, int k) const {
  const bool nodalTarget = target_->gridType == kGridNodalLevelset;
  const bool nodalSource = source_->gridType == kGridNodalLevelset;
  const Vec3D cell = Vec3D(VecInt3D(i, j, k)) + Vec3D(nodalTarget ? 0.0 : 0.5);
  Vec3D c = (target_->space.HostOfVoxel(cell) - source_->space.hostMin) * source_->space.voxelsPerHost;
  if (!nodalSource) c -= Vec3D(0.5);
  c -= Vec3D(offset_);
  if constexpr (std::is_same_v<T, double>) {
    return SampleGrid(*source_, c.x, c.y, c.z, interpolation_);
  } else {
    const GridView<const T> view(*source_);
    if (std::min({view.dims.x, view.dims.y, view.dims.z}) < 2) return view[0];
    return SampleTrilinear(view, c.x, c.y, c.z);
  }
}

template <class T>
void GridResampler<T>::Store(T& cell, double v) const {
  switch (operation_) {
    case ResampleOperation::Copy:
      cell = static_cast<T>(v);
      break;
    case ResampleOperation::Normalise:
      cell = static_cast<T>((v - source_->valueOffset) / source_->valueScale);
      break;
    case ResampleOperation::Scale:
      cell = static_cast<T>(v * target_->valueScale + target_->valueOffset);
      break;
    case ResampleOperation::Min:
      cell = std::min(cell, static_cast<T>(v));
      break;
    case ResampleOperation::Max:
      cell = std::max(cell, static_cast<T>(v));
      break;
  }
}

template <class T>
bool GridResampler<T>::RunSlice(int w, const BaseThread* hostThread) const {
  if (!slabs_.Has(w)) return true;
  const VecInt3D a = slabs_.rangeMin[w], b = slabs_.rangeMax[w];
  const VecInt3D n = source_->dims;
  for (int k = a.z; k < b.z; ++k) {
    if (hostThread && hostThread->TestBreak()) return false;
    for (int j = a.y; j < b.y; ++j) {
      for (int i = a.x; i < b.x; ++i) {
        const VecInt3D from = VecInt3D(i, j, k) + offset_;
        const bool inside = from.x >= 0 && from.y >= 0 && from.z >= 0 && from.x < n.x && from.y < n.y && from.z < n.z;
        if (direct_ && !inside) continue;
        Store((*target_)(i, j, k), direct_ ? double((*source_)(from.x, from.y, from.z)) : ValueFor(i, j, k));
      }
    }
  }
  return true;
}

template <class T>
bool GridResampler<T>::Run(WorkerPool& pool, const BaseThread* hostThread) const {
  std::atomic<bool> complete{true};
  pool.Run(slabs_.slices, [&](int w) {
    if (!RunSlice(w, hostThread)) complete.store(false, std::memory_order_relaxed);
  });
  return complete.load();
}

template class GridResampler<double>;
template class GridResampler<float>;

}  // namespace orlix
