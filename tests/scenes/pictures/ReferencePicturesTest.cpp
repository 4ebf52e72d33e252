// Pictures of shipped scenes against those that were looked at and found good. With ORLIX_RENEW_PICTURES=1 the test
// writes the reference pictures anew instead: look at them before they are committed.

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

#include "host/pictures/PictureCompare.h"
#include "host/pictures/PictureFile.h"
#include "run/PictureMaker.h"
#include "tests/support/Folders.h"
#include "tests/support/SceneFileRun.h"
#include "tests/support/TemporaryFolder.h"

namespace orlix::test {
namespace {

struct Look {
  const char* name;
  const char* scene;
  std::vector<std::string> overrides;
  int frame;
};

class ReferencePictures : public testing::TestWithParam<Look> {};

std::filesystem::path ReferenceOf(const Look& look) {
  return std::filesystem::path(SourceFolder()) / "tests/scenes/pictures" / (std::string(look.name) + ".png");
}

// The PNG that the program would write, in the folder.
std::filesystem::path MakePicture(const Look& look, const std::filesystem::path& folder) {
  SceneFileRun shipped(look.scene, look.overrides);
  shipped.StepThrough(0, look.frame);
  PictureMaker maker({.width = 160, .height = 120}, nullptr);
  const RunState state{.document = *shipped.document,
                       .hook = shipped.hook,
                       .pool = shipped.pool,
                       .outputFolder = folder.string(),
                       .warnings = shipped.observer.warnings};
  if (const Status made = maker.Make(state, {folder}); !made.ok()) throw std::runtime_error(made.error().text);
  // Each call looks at the gas at least once, on the whole, and at most as often as the finest steps allow.
  EXPECT_GT(maker.report().volumeSamples, maker.report().volumeCalls);
  EXPECT_LT(maker.report().volumeSamples, 2000 * maker.report().volumeCalls);
  for (const auto& path : maker.written()) {
    if (path.extension() == ".png") return path;
  }
  throw std::runtime_error("the scene writes no PNG");
}

TEST_P(ReferencePictures, LookTheSame) {
  TemporaryFolder folder;
  const auto made = MakePicture(GetParam(), folder.path()), kept = ReferenceOf(GetParam());
  if (std::getenv("ORLIX_RENEW_PICTURES")) {
    std::filesystem::copy_file(made, kept, std::filesystem::copy_options::overwrite_existing);
    GTEST_SKIP() << "written: " << kept;
  }
  EXPECT_LE(std::filesystem::file_size(kept), 100u << 10);
  const Result<Picture> picture = ReadPicture(made), reference = ReadPicture(kept);
  ASSERT_TRUE(picture.ok() && reference.ok());
  const Result<PictureDifference> difference = ComparePictures(*picture, *reference);
  ASSERT_TRUE(difference.ok()) << difference.error().text;
  EXPECT_TRUE(LooksAlike(*difference)) << "mean " << difference->mean << ", largest " << difference->largest
                                       << ", visible " << difference->visibleShare;
}

INSTANTIATE_TEST_SUITE_P(
    Looks, ReferencePictures,
    testing::Values(Look{"smoke", "scenes/plume_around_obstacle.json", {"Room.voxel_size=0.12"}, 40},
                    Look{"explosion", "scenes/explosion.json", {"Blast.voxel_size=0.12"}, 18},
                    Look{"candle", "scenes/candle.json", {"Candle.voxel_size=0.002"}, 8}),
    [](const auto& look) { return std::string(look.param.name); });

}  // namespace
}  // namespace orlix::test
