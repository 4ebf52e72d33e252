#pragma once
// Moves particles over a sub-step: along a velocity field, as bodies in free flight, or dragged by the field, until
// they meet something.
//
//   mode               a step of dt (Verlet 1967; Swope et al. 1982)
//   trace              x through the field (VelocityTrace.h); the particle's own velocity stays, and what it moves by
//                      is told by its old position
//   drag               v += 0.3 (u - v) - 0.01 g dt,  x += v dt,  u the field at x
//   Euler              v += (F / m + g) dt,  x += v dt
//   Verlet             x += (x - old) + (F + m g) dt^2,  v = what x moved by
//   velocity Verlet    v += (F + g) dt,  x += v dt
//
// F is the particle's external force, used once and then 0; m its mass, 1 without one.

#include <span>

#include "fluids/advection/VelocityTrace.h"
#include "fluids/boundary/SolidView.h"
#include "fluids/level_sets/LevelSetView.h"
#include "fluids/particle_operators/InstantOperator.h"

namespace orlix {

enum class MotionSource : std::int32_t { None = 0, Solvers = 1, Ballistic = 2, SolversBallisticInside = 3 };
enum class BallisticIntegrator : std::int32_t { Euler = 0, Verlet = 1, VelocityVerlet = 2 };
enum class CollisionMode : std::int32_t { None = 0, ObstaclesFirst = 1, Boundary = 2 };

// How particles move in this sub-step.
struct MotionSettings {
  MotionSource source = MotionSource::Solvers;
  Integrator integrator = Integrator::Heun;
  BallisticIntegrator ballistic = BallisticIntegrator::Euler;
  CollisionMode collisions = CollisionMode::Boundary;
  int iterations = 1;
  int collideFrom = 0;        // the first iteration that looks for contacts
  double dt = 0;              // s, of one iteration
  float collisionRadius = 0;  // in cells of a boundary, in metres of an obstacle's level set
  Vec3D gravity;              // m/s^2
  bool firstSubstep = true;   // of the frame
  bool lastSubstep = true;
  bool keepsStart = false;  // traced particles' old position becomes where they are now
  bool killInside = false;  // particles that end an iteration inside the boundary die
};

// An obstacle as contacts ask it. Beyond the level set's box its border's value stands.
struct ObstacleView {
  LevelSetView distance;
  bool reachesBeyond = false;  // a value of the border may count as a contact
  ObstacleView(const ScalarGrid& levelSet, double radius);
};

// What particles move through in one pass: a solver's field with its boundary, or nothing but obstacles.
struct MotionField {
  VelocityView velocity;  // without data there is none
  SolidView solid;        // the same
  Vec3D origin;           // of the velocity's lattice
  double cellSize = 1;    // m, of it
  std::span<const ObstacleView> obstacles;
};

// Moves rows of one chunk, tells contacts to the operators (at most one of a particle), kills what is inside or aged,
// and counts the former as lost. Called on workers; rows of different workers are disjoint.
void MoveParticles(const MotionSettings& settings, const MotionField& field,
                   std::span<iInstantOperator* const> operators, const InstantContext& context,
                   const ParticleRows& rows, std::int32_t thread);

}  // namespace orlix
