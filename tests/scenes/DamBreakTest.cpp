// A collapsing column of water against the measured one (Martin and Moyce 1952, tables 2 and 6 for a column twice as
// high as wide).

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "fluids/liquids/WaterSolver.h"
#include "tests/support/SceneFileRun.h"

namespace orlix {
namespace {

using test::SceneFileRun;

constexpr double kWidth = 0.5, kGravity = 9.81;  // m, m/s^2

const std::vector<std::string> kColumn = {"Column.size=[50,100,100]", "Column.position=[25,50,50]"};

// How far the water has come along the floor, m: what is ahead of it are drops.
double Front(SceneFileRun& run) {
  const ParticleList& list = *run.Get<ParticleGroup>("Water").list(PK_Liquid);
  std::vector<double> x;
  for (int n = 0; n < list.count(); ++n) x.push_back(list.Position(n).x);
  const auto last = x.begin() + std::ptrdiff_t(double(x.size()) * 0.999);
  std::nth_element(x.begin(), last, x.end());
  return *last;
}

// The measured front Z = front / width at T = t sqrt(2 g / width).
double MeasuredFront(double time) {
  constexpr double kT[] = {0.41, 0.84, 1.19, 1.43, 1.63, 1.83, 1.98, 2.20, 2.32, 2.51, 2.65, 2.83, 2.98, 3.11, 3.33};
  constexpr double kZ[] = {1.11, 1.22, 1.44, 1.67, 1.89, 2.11, 2.33, 2.56, 2.78, 3.00, 3.22, 3.44, 3.67, 3.89, 4.11};
  const auto above = std::upper_bound(std::begin(kT), std::end(kT), time) - std::begin(kT);
  const auto n = std::clamp<std::ptrdiff_t>(above, 1, std::ssize(kT) - 1);
  return kZ[n - 1] + (kZ[n] - kZ[n - 1]) * (time - kT[n - 1]) / (kT[n] - kT[n - 1]);
}

TEST(DamBreak, TheFrontIsTheMeasuredOne) {
  std::vector<std::string> settings = kColumn;
  settings.push_back("Dam.voxel_size=0.05");
  SceneFileRun run("scenes/dam_break.json", settings);
  run.StepThrough(0, 1);
  constexpr double kShift = 0.22;  // of T: the gate took its time to leave
  int compared = 0;
  for (int frame = 2; frame < 15; ++frame) {
    run.StepThrough(frame, frame);
    // The first frame stands at rest; particles move with the velocity of the middle of a frame.
    const double time = (frame - 0.5) / 24.0 * std::sqrt(2 * kGravity / kWidth) + kShift;
    if (time < 0.84 || time > 3.33) continue;
    EXPECT_NEAR(Front(run) / kWidth, MeasuredFront(time), 0.08 * MeasuredFront(time)) << "at T " << time;
    ++compared;
  }
  EXPECT_GT(compared, 8);
  EXPECT_TRUE(run.warnings.empty()) << run.warnings.front();
}

TEST(DamBreak, KeepsItsVolumeAndTheBitsAtAnyNumberOfWorkers) {
  std::vector<std::uint64_t> hashes;
  double first = 0;
  for (const int workers : {1, 2, 3, 8}) {
    std::vector<std::string> settings = kColumn;
    settings.push_back("Dam.voxel_size=0.0625");
    settings.push_back("Tank.face_y_max=closed");
    SceneFileRun run("scenes/dam_break.json", settings, workers);
    run.StepThrough(0, 10);
    hashes.push_back(run.scene().HashState());
    EXPECT_EQ(hashes.back(), hashes.front()) << workers;
    const auto volume = [](const SubstepReport& report) { return report.liquids.at(0).surfaceVolume; };
    first = volume(*std::find_if(run.reports.begin(), run.reports.end(),
                                 [](const SubstepReport& report) { return report.frame == 2; }));
    EXPECT_NEAR(first, 0.5, 0.1) << "m^3";
    EXPECT_EQ(run.reports.back().liquids.at(0).outside, 0) << "particles beyond the walls";
  }
}

}  // namespace
}  // namespace orlix
