#pragma once
// The plain records that go between the engine and a plug-in. Lengths are metres, times seconds; places are in
// simulation space, whose unit is the metre, where nothing else is said.

#include <cstdint>

namespace ZQAPI {

struct Vec3D {
  double x = 0, y = 0, z = 0;

  friend constexpr Vec3D operator+(const Vec3D& a, const Vec3D& b) { return {a.x + b.x, a.y + b.y, a.z + b.z}; }
  friend constexpr Vec3D operator-(const Vec3D& a, const Vec3D& b) { return {a.x - b.x, a.y - b.y, a.z - b.z}; }
  friend constexpr Vec3D operator*(const Vec3D& a, double s) { return {a.x * s, a.y * s, a.z * s}; }
  friend constexpr Vec3D operator*(double s, const Vec3D& a) { return a * s; }
  // Component by component.
  friend constexpr Vec3D operator*(const Vec3D& a, const Vec3D& b) { return {a.x * b.x, a.y * b.y, a.z * b.z}; }
  constexpr Vec3D& operator+=(const Vec3D& b) { return *this = *this + b; }
  constexpr bool operator==(const Vec3D& b) const { return x == b.x && y == b.y && z == b.z; }
};

// A point p of an object's own space stands at off + p.x v1 + p.y v2 + p.z v3.
struct Matrix {
  Vec3D off, v1, v2, v3;

  Vec3D Rotate(const Vec3D& d) const { return v1 * d.x + v2 * d.y + v3 * d.z; }
  Vec3D Move(const Vec3D& p) const { return off + Rotate(p); }
};

// The kinds of particles of a group.
enum ParticleFactoryTypes : std::int32_t {
  ParticlePassive = 0,
  ParticleVorticity = 1,
  ParticleLiquid = 2,
  ParticleDiffuse = 3
};

// Properties of particles by number: 0 to 24 reals, 25 to 49 vectors, 50 to 74 states, 75 on the user's own, which
// belong to a property node each.
enum ParticleProperty : std::int32_t {
  PropertyRadius = 0,  // m
  PropertyAge = 2,     // frames left to live
  PropertyDensity = 3,
  PropertyViscosity = 4,
  PropertyTemperature = 6,
  PropertyFire = 7,
  PropertyFuel = 8,
  PropertyMass = 9,
  PropertyColor = 25,
  PropertyNormal = 34,
  PropertyVelocity = 37,  // every particle has it
  PropertyVorticity = 38,
  PropertyExternalForce = 39,
  PropertyPosition = 40,  // every particle has it
  PropertyUV = 45,
  FirstUserProperty = 75
};

// The bit of a particle's flags that says that it lives. A particle without it leaves at the end of the sub-step.
constexpr std::uint16_t kAlive = 1;

// The scene's list that a node stands in.
enum NodeBaseType : std::int32_t {
  NODE_CHANNEL = 1,
  NODE_VOLUME = 2,
  NODE_EMITTER = 3,
  NODE_OPERATOR = 4,
  NODE_SOLVER = 5,
  NODE_PARTICLES = 6,
  NODE_FORCE = 7,
  NODE_CACHE = 8,
  NODE_SETTINGS = 10,
  NODE_HELPER = 11
};

// Some of the numbers that GetNodeSubType gives.
enum NodeSubType : std::int32_t {
  SubTypeScalarChannel = 44,
  SubTypeVectorChannel = 45,
  SubTypeVelocityChannel = 46,
  SubTypeParticleGroup = 66,
  SubTypeProperty = 67,
  SubTypeMultiVolume = 70,
  SubTypeMesher = 85
};

// Bit numbers of what a node offers.
enum NodeRetrieveType : std::uint32_t {
  RETRIEVE_SCALAR = 1,
  RETRIEVE_VECTOR = 2,
  RETRIEVE_GRID = 6,      // acts on grids
  RETRIEVE_PARTICLE = 7,  // acts on particles
  RETRIEVE_CONSTRAINT = 8,
  RETRIEVE_PROPERTY = 10,
  RETRIEVE_MESH = 12,
  RETRIEVE_LEVELSET = 13,
  RETRIEVE_VOLUME = 14
};
constexpr std::uint32_t RetrieveBit(NodeRetrieveType type) { return 1u << type; }

// What FindNodeByKind and CollectNodesByKind look for.
enum NodeKind : std::uint32_t { KindParticles = 0, KindVolume = 1, KindScalar = 2, KindVector = 3, KindMesh = 4 };

// The stages of a sub-step in which an operator may run, in their order.
enum Stage : std::int32_t {
  StageVolumes = 3,
  StageEmitters = 5,
  StageAdvection = 6,
  StageOperators = 7,
  StageFluidDynamics = 8,
  StageForces = 9,
  StagePressure = 10,
  StageFlip = 11,
  StageDynamicsPost = 12,
  StageChannels = 13,
  StageChannelsAdvection = 14,
  StageChannelsOperators = 15
};

struct SubstepInfo {
  std::uint8_t substep = 1;       // of the frame, from 1
  std::uint8_t substepCount = 0;  // of this frame, as far as known
  std::uint8_t minSubsteps = 1;
  bool lastSubstep = true;
};

// The time of a scene.
struct SimulationInfo : SubstepInfo {
  std::int32_t frame = 0;      // since the simulation's start
  double frameDuration = 0;    // s of simulated time
  double time = 0;             // s since the start
  double substepDuration = 0;  // s
  double frameElapsed = 0;     // s consumed in this frame, this sub-step included
  std::int32_t fps = 0;
  double substepFraction = 0;  // the sub-step as a fraction of the frame
  double frameRemaining = 0;   // the fraction of the frame that is still to come
};

// How simulation space lies to host space, and its cell.
struct SimulationSpace {
  Vec3D hostPerSim, simPerHost;
  double cellSize = 0;  // m
};

// The samples of a grid, as they lie in memory: x runs fastest, then y, then z.
struct ZQGrid {
  double* values = nullptr;
  std::int32_t nx = 0, ny = 0, nz = 0;
  Vec3D origin, step;  // the lattice's corner and cell, m
  Vec3D offset;        // where a sample stands in its cell, in cells: half a cell for a centre

  explicit operator bool() const { return values != nullptr; }
  std::int64_t Count() const { return std::int64_t(nx) * ny * nz; }
  std::int64_t Index(std::int32_t i, std::int32_t j, std::int32_t k) const {
    return (std::int64_t(k) * ny + j) * nx + i;
  }
  Vec3D Position(std::int32_t i, std::int32_t j, std::int32_t k) const {
    return (Vec3D{double(i), double(j), double(k)} + offset) * step + origin;
  }
};

// Triangles and points, read only, valid until the node makes its mesh anew.
struct ZQMesh {
  const Vec3D* points = nullptr;
  std::int32_t pointCount = 0;
  const std::int32_t* corners = nullptr;  // three point numbers a triangle
  std::int32_t polygonCount = 0;
};

struct Neighbor {
  std::int32_t index = -1;  // of the particle
  double distanceSquared = 0, distance = 0;
};
// The nearest first. Valid until the next query of the same thread.
struct NeighborData {
  const Neighbor* neighbors = nullptr;
  std::int32_t count = 0;
};

// Where a surface was met.
struct VolumeHit {
  bool inside = false;
  Vec3D position, normal;
  double distance = 0;
};

// --- what the phases of a node receive

struct ProcessData {
  std::int32_t threadIndex = 0, threadCount = 1;
  bool lastThread = true;
  bool isParticle = false;
  std::int32_t iteration = 0;
  double weight = 1;  // what the duration leaves; in a force, times the sub-step (s) and what the constraints leave
  bool (*breakTest)(const void*) = nullptr;
  const void* breakSource = nullptr;

  // Whether the user wants the run to end: a long pass asks now and then, and returns.
  bool TestBreak() const { return breakTest && breakTest(breakSource); }
};

// One place that a force is asked about.
struct ProcessDataPlace : ProcessData {
  Vec3D position;
  Vec3D velocity;  // m/s, of the fluid or of the particle; where the force ReadsVelocity
  Vec3D force;     // m/s to be added in this sub-step, the sum so far; forces add to it
};
struct ProcessDataGrids : ProcessDataPlace {
  std::int64_t cellIndex = -1;  // linear, of the cell in the lattice of the velocity
};
class ZQParticleGroup;
struct ProcessDataParticles : ProcessDataPlace {
  ZQParticleGroup* group = nullptr;  // null for a place on a body
  std::int32_t kind = -1;            // ParticleFactoryTypes
  std::int32_t index = -1;
};

constexpr std::int32_t kBatch = 256;

// Places that a force or a constraint is asked about at once; at most kBatch. Element n of a particle batch is the
// particle firstIndex + n of its group and kind, of a batch of cells the cell firstIndex + n.
struct PlaceBatch {
  std::int32_t count = 0;
  std::int32_t threadIndex = 0;
  bool isParticle = false;
  std::int32_t kind = -1;
  ZQParticleGroup* group = nullptr;  // of particles; null for places on bodies
  std::int64_t firstIndex = -1;
  const double *x = nullptr, *y = nullptr, *z = nullptr;  // places

  Vec3D Position(std::int32_t n) const { return {x[n], y[n], z[n]}; }
};

// weights[n] is what the push of place n is multiplied by: sub-step (s) x duration x constraints. Where it is 0 nothing
// is asked, and nothing may be added.
struct ForceBatch : PlaceBatch {
  const double* weights = nullptr;
  const double *u = nullptr, *v = nullptr, *w = nullptr;        // velocities, m/s; null unless the force ReadsVelocity
  double *pushX = nullptr, *pushY = nullptr, *pushZ = nullptr;  // m/s to be added; forces add to them

  Vec3D Velocity(std::int32_t n) const { return {u[n], v[n], w[n]}; }
  // acceleration in m/s^2.
  void Add(std::int32_t n, const Vec3D& acceleration) const {
    const double weight = weights[n];
    pushX[n] += acceleration.x * weight;
    pushY[n] += acceleration.y * weight;
    pushZ[n] += acceleration.z * weight;
  }
};

// values[n] is the amount so far, to be scaled, where asked[n] isn't 0. An Evaluate that would give false at a place,
// so that the value stays and the node's intensity doesn't enter, sets asked[n] to 0.
struct ConstraintBatch : PlaceBatch {
  double* values = nullptr;
  std::uint8_t* asked = nullptr;
};

}  // namespace ZQAPI
