#include "host/pictures/PictureCompare.h"

#include <gtest/gtest.h>

#include <cmath>

#include "globals/Random.h"

namespace orlix {
namespace {

Picture Grey(float value, int width = 64, int height = 48) {
  Picture picture(width, height);
  for (const char* name : {"R", "G", "B"}) picture.AddChannel(name, value);
  return picture;
}

PictureDifference Difference(const Picture& a, const Picture& b) {
  const Result<PictureDifference> result = ComparePictures(a, b);
  EXPECT_TRUE(result);
  return result ? *result : PictureDifference();
}

TEST(PictureCompare, BlackAndWhiteAreAHundredApart) {
  const PictureDifference d = Difference(Grey(0), Grey(1));
  EXPECT_NEAR(d.mean, 100, 0.01);
  EXPECT_NEAR(d.largest, 100, 0.01);
  EXPECT_EQ(d.visibleShare, 1);
  EXPECT_EQ(Difference(Grey(0.3f), Grey(0.3f)).largest, 0);
  EXPECT_EQ(Difference(Grey(1), Grey(40)).largest, 0) << "a display shows both as white";
}

TEST(PictureCompare, GrainIsAlikeAndAnEqualMeanInPatchesIsNot) {
  MersenneTwister random(2);
  Picture grain = Grey(0), patches = Grey(0);
  for (std::size_t i = 0; i < grain.pixelCount(); ++i) {
    const bool light = random.Bits() & 1u;
    const bool inPatch = (i % 64 / 16 + i / 64 / 16) % 2;
    for (const char* name : {"R", "G", "B"}) {
      grain.Find(name)->values[i] = light ? 0.52f : 0.48f;
      patches.Find(name)->values[i] = inPatch ? 0.56f : 0.44f;
    }
  }
  EXPECT_TRUE(LooksAlike(Difference(grain, Grey(0.5f))));
  EXPECT_FALSE(LooksAlike(Difference(patches, Grey(0.5f))));
}

TEST(PictureCompare, AThingThatMovedIsSeen) {
  Picture a = Grey(0.2f), b = Grey(0.2f);
  for (std::size_t y = 20; y < 30; ++y) {
    for (std::size_t x = 20; x < 30; ++x) {
      a.Find("R")->values[y * 64 + x] = 1;
      b.Find("R")->values[y * 64 + x + 6] = 1;
    }
  }
  EXPECT_FALSE(LooksAlike(Difference(a, b)));
}

TEST(PictureCompare, OnlyLikeSizesWithColoursCompare) {
  EXPECT_FALSE(ComparePictures(Grey(0), Grey(0, 64, 47)));
  Picture depth(64, 48);
  depth.AddChannel("Z");
  EXPECT_FALSE(ComparePictures(Grey(0), depth));
  EXPECT_FALSE(ComparePictures(Picture(), Picture()));
  EXPECT_EQ(Difference(Grey(std::nanf("")), Grey(0)).largest, 0);
}

}  // namespace
}  // namespace orlix
