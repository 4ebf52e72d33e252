// Colours by place.

#include <gtest/gtest.h>

#include "host/objects/BaseDocument.h"
#include "host/pictures/PictureFile.h"
#include "host/shaders/ShaderTypes.h"
#include "tests/support/TemporaryFolder.h"

namespace orlix {
namespace {

class Shaders : public testing::Test {
 protected:
  Shaders() { RegisterShaderTypes(types_); }
  std::vector<Vec3D> Ask(const BaseObject& object, Shader::PlaceKind kind, const std::vector<Vec3D>& places) {
    std::vector<Vec3D> colours = places;  // a shader may be asked to write over its places
    object.data()->AsShader()->Colours(object, kind, colours, colours);
    return colours;
  }
  TypeRegistry types_;
  BaseDocument document_{types_};
};

TEST_F(Shaders, APictureLiesInSpaceOrByTextureCoordinates) {
  const test::TemporaryFolder folder;
  Picture picture(4, 2);
  for (const char* name : {"R", "G", "B"}) picture.AddChannel(name, 0, true);
  for (int pixel = 0; pixel < 8; ++pixel) {
    picture.Find("R")->values[static_cast<std::size_t>(pixel)] = static_cast<float>(pixel % 4);
    picture.Find("G")->values[static_cast<std::size_t>(pixel)] = static_cast<float>(pixel / 4);
  }
  ASSERT_TRUE(WritePicture(folder / "p.exr", picture).ok());
  document_.folder = folder.path().string();
  BaseObject& object = document_.AddObject(kPictureShaderType);
  object.Set(1100, std::string("p.exr"));
  object.Set(1101, 40.0), object.Set(1102, 20.0), object.Set(1103, false);
  object.Set(kPositionId, Vec3D(100, 0, 0));
  ASSERT_TRUE(document_.SetTime({0, 24}).ok());
  // Centres of pixels; rows stand from the top.
  const auto byTexture =
      Ask(object, Shader::PlaceKind::Texture, {{0.125, 0.75, 0}, {0.875, 0.25, 0}, {0.25, 0.75, 0}, {-3, 9, 0}});
  EXPECT_EQ(byTexture[0], Vec3D(0, 0, 0));
  EXPECT_EQ(byTexture[1], Vec3D(3, 1, 0));
  EXPECT_EQ(byTexture[2], Vec3D(0.5, 0, 0));
  EXPECT_EQ(byTexture[3], Vec3D(0, 0, 0)) << "the border goes on";
  EXPECT_EQ(Ask(object, Shader::PlaceKind::Space, {{115, -5, 77}})[0], Vec3D(3, 1, 0));
  object.Set(1103, true);
  EXPECT_EQ(Ask(object, Shader::PlaceKind::Texture, {{5.875, -2.75, 0}})[0], Vec3D(3, 1, 0));
}

TEST_F(Shaders, APictureThatCantBeReadIsTold) {
  BaseObject& object = document_.AddObject(kPictureShaderType);
  EXPECT_TRUE(document_.SetTime({0, 24}).ok());
  EXPECT_EQ(Ask(object, Shader::PlaceKind::Space, {{1, 2, 3}})[0], Vec3D(1)) << "white without a picture";
  object.Set(1100, std::string("/nowhere/at/all.png"));
  EXPECT_FALSE(document_.SetTime({0, 24}).ok());
}

TEST_F(Shaders, NoiseGoesThroughItsColoursAndMovesWithItsObject) {
  BaseObject& object = document_.AddObject(kNoiseShaderType);
  const GradientKnot knots[] = {{0, {1, 0, 0}}, {1, {0, 0, 1}}};
  object.Set(1105, GradientValue(std::make_shared<Gradient>(knots)));
  ASSERT_TRUE(document_.SetTime({0, 24}).ok());
  std::vector<Vec3D> places;
  for (int n = 0; n < 50; ++n) places.push_back(Vec3D(7 * n, 3 * n, -n));
  const auto before = Ask(object, Shader::PlaceKind::Space, places);
  for (const Vec3D& colour : before) EXPECT_NEAR(colour.x + colour.z, 1, 1e-12);
  EXPECT_GT(Length(before[3] - before[17]), 1e-3);
  object.Set(kPositionId, Vec3D(1000, 0, 0));
  for (Vec3D& place : places) place.x += 1000;
  const auto after = Ask(object, Shader::PlaceKind::Space, places);
  for (std::size_t n = 0; n < places.size(); ++n) EXPECT_LT(Length(after[n] - before[n]), 1e-9);
}

}  // namespace
}  // namespace orlix
