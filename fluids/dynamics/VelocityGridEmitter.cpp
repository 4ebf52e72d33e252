#include "fluids/dynamics/VelocityGridEmitter.h"

#include <algorithm>

#include "fluids/dynamics/FaceForces.h"
#include "fluids/dynamics/FluidSolver.h"
#include "fluids/dynamics/Force.h"

namespace orlix {

namespace {

constexpr std::int32_t kAnySubType = 2000, kGasSolver = 37;

FaceFractions FractionsOf(const FluidSolver& solver) {
  return {solver.fractions.View(0, 1), solver.fractions.View(1, 1), solver.fractions.View(2, 1)};
}

FaceComponents VelocityOf(const FluidSolver& solver) {
  return {*solver.velocity.grids[0], *solver.velocity.grids[1], *solver.velocity.grids[2]};
}

}  // namespace

void VelocityGridEmitter::GiveBack() {
  for (auto& grid : forceGrids_) grid = {};
}

void VelocityGridEmitter::ClearState(bool deactivate) {
  GiveBack();
  if (deactivate) iObject::ClearState(true);
}

bool VelocityGridEmitter::ResolveLinks() {
  forces.clear();
  const InExcludeData* list = handler.GetInExclude(kForcesId);
  if (list && list->entries.empty()) list = nullptr;
  std::vector<iBase*> found;
  scene->RetrieveAll(list, found, NODE_FORCE, RetrieveBit(RETRIEVE_GRID), kAnySubType, RETRIEVE_GRID, true);
  for (iBase* node : found) {
    if (auto* force = dynamic_cast<Force*>(node)) forces.push_back(force);
  }
  if (list) AdviseList(*list);
  return iObject::ResolveLinks();
}

void VelocityGridEmitter::AdviseList(const InExcludeData& list) const {
  for (const InExcludeData::Entry& entry : list.entries) {
    const BaseList2D* object = scene->GetHostDocument()->FindObject(entry.target);
    const iBase* node = object ? scene->Retrieve(object, NODE_FORCE, RETRIEVE_ANY, RETRIEVE_ANY) : nullptr;
    if (!node || node->HasRetrieveType(RETRIEVE_GRID)) continue;
    Warn("force-on-particles:" + node->DisplayName(),
         "\"" + node->DisplayName() +
             "\" pushes particles alone, so it does nothing in its \"forces\"; list it at particle_forces");
  }
}

void VelocityGridEmitter::ReleaseLinks() {
  forces.clear();
  SetFlag(NodeActive, false);
  iObject::ReleaseLinks();
}

void VelocityGridEmitter::CheckDirty() {
  iObject::CheckDirty();
  if (!scene->HasFlag(TimeMoved) || simulationInfo->time <= 0) {
    SetFlag(NodeDirty | NodeHardDirty, false);
  } else if (!IsDirty()) {
    MarkDirty(false);
  }
}

bool VelocityGridEmitter::HasInput() const {
  if (!solver || !solver->IsActive() || solver->HasFlag(NodeFromCache) || forces.empty()) return false;
  const auto& grids = solver->velocity.grids;
  return grids[0] && grids[1] && grids[2] && FractionsOf(*solver)[0].data;
}

void VelocityGridEmitter::Emit() {
  SetFlag(NodeActive, HasInput());
  if (!IsActive()) return;
  for (Force* force : forces) {
    if (!force->IsEnabled()) continue;
    force->AttachVelocity(&solver->velocity, &solver->boundary);
    force->Prepare(solver);
  }
  for (auto& grid : forceGrids_) grid = scene->scratch().Take<double>(solver->velocity.grids[0]->space.dims);
  GatherForces();
  if (!scene->TestBreak()) AddForcesToFaces(ForceViews(), FractionsOf(*solver), VelocityOf(*solver), scene->pool());
  for (Force* force : forces) {
    if (force->IsEnabled()) force->Finish();
  }
  GiveBack();
}

void VelocityGridEmitter::GatherForces() {
  const GridSpace& space = solver->velocity.grids[0]->space;
  ParallelRange(scene->pool(), 0, space.dims.z, [&](int begin, int end, int worker) {
    for (std::int32_t k = begin; k < end; ++k) {
      if (scene->TestBreak()) return;
      for (std::int32_t j = 0; j < space.dims.y; ++j) GatherRow(space, j, k, worker);
    }
  });
}

void VelocityGridEmitter::GatherRow(const GridSpace& space, std::int32_t j, std::int32_t k, std::int32_t worker) {
  const CellForces grids = ForceViews();
  const std::int64_t start = grids[0].Index(0, j, k);
  for (const GridView<double>& grid : grids) std::fill_n(grid.data + start, space.dims.x, 0.0);
  if (j < 1 || k < 1 || j >= space.dims.y - 1 || k >= space.dims.z - 1) return;
  ForceRow row;
  row.begin = 1, row.end = space.dims.x - 1, row.j = j, row.k = k;
  row.threadIndex = worker;
  row.space = &space;
  row.forceX = grids[0].data + start, row.forceY = grids[1].data + start, row.forceZ = grids[2].data + start;
  for (Force* force : forces) {
    if (force->IsEnabled()) force->ProcessRow(row);
  }
  const FaceFractions fractions = FractionsOf(*solver);
  ClearClosedCells(fractions, grids, j, k);
  // A gas has no weight of its own here.
  if (solver->GetNodeSubType() != kGasSolver) {
    AddGravity(fractions, VelocityOf(*solver), scene->GetGravity() * simulationInfo->substepDuration, j, k);
  }
}

}  // namespace orlix
