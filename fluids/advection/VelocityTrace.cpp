#include "fluids/advection/VelocityTrace.h"

#include "fluids/channels/VectorChannels.h"

namespace orlix {

namespace {

using Components = std::array<std::unique_ptr<ScalarGrid>, 3>;

void Trace(const Components& grids, Vec3D& position, float dt, Integrator integrator, bool worldSpace) {
  if (!grids[0] || !grids[1] || !grids[2] || !IsKnown(integrator)) return;
  const VelocityView velocity{*grids[0], *grids[1], *grids[2]};
  if (!velocity.HasData()) return;
  const GridSpace& space = grids[0]->space;
  const Vec3D origin = worldSpace ? space.simMin : Vec3D();
  const double inverse = 1.0 / static_cast<double>(space.cellSize);
  const auto velocityAt = [&](const Vec3D& local) { return velocity.At(local * inverse); };
  position = TracePoint(integrator, position - origin, static_cast<double>(dt), velocityAt) + origin;
}

}  // namespace

void TraceVelocityField(const VectorGridChannel& channel, Vec3D& position, float dt, Integrator integrator,
                        bool worldSpace) {
  Trace(channel.grids, position, dt, integrator, worldSpace);
}

void TraceVelocityFieldPrevious(const VectorGridChannel& channel, Vec3D& position, float dt, Integrator integrator,
                                bool worldSpace) {
  Trace(channel.previousGrids, position, dt, integrator, worldSpace);
}

}  // namespace orlix
