#include <ImfChannelList.h>
#include <ImfFrameBuffer.h>
#include <ImfHeader.h>
#include <ImfOutputFile.h>
#include <gtest/gtest.h>
#include <half.h>

#include <cmath>
#include <cstring>
#include <sstream>

#include "globals/Random.h"
#include "host/pictures/ExrFile.h"
#include "host/pictures/PictureCompare.h"
#include "host/pictures/PictureFile.h"
#include "host/pictures/PngFile.h"
#include "host/pictures/Srgb.h"
#include "tests/support/TemporaryFolder.h"

namespace orlix {
namespace {

using test::TemporaryFolder;

Picture Noise(int width, int height, std::initializer_list<const char*> names) {
  MersenneTwister random(1);
  Picture picture(width, height);
  for (const char* name : names) {
    for (float& v : picture.AddChannel(name).values) v = half(static_cast<float>(random.Uniform() * 2));
  }
  return picture;
}

std::vector<std::byte> Bytes(const std::ostringstream& stream) {
  const std::string text = stream.str();
  std::vector<std::byte> bytes(text.size());
  std::memcpy(bytes.data(), text.data(), text.size());
  return bytes;
}

std::vector<std::byte> ExrOf(const Picture& picture) {
  std::ostringstream stream;
  EXPECT_TRUE(WriteExr(picture, stream));
  return Bytes(stream);
}
std::vector<std::byte> PngOf(const Picture& picture, const PictureView& view = {}) {
  std::ostringstream stream;
  EXPECT_TRUE(WritePng(picture, view, stream));
  return Bytes(stream);
}

TEST(ExrFile, ComesBackExactlyAtAnySize) {
  for (const auto& [width, height] : {std::pair{1, 1}, {3, 200}, {67, 64}, {300, 65}}) {
    Picture picture = Noise(width, height, {"R", "G", "B", "A", "velocity.X"});
    for (float& v : picture.AddChannel("Z", 0, true).values) v = 1.0f / 3;
    const Result<Picture> back = ReadExr(ExrOf(picture));
    ASSERT_TRUE(back) << back.error().text;
    EXPECT_EQ(back->width(), width);
    EXPECT_EQ(back->height(), height);
    ASSERT_EQ(back->channels().size(), 6u);
    for (const PictureChannel& channel : picture.channels()) {
      ASSERT_TRUE(back->Find(channel.name)) << channel.name;
      EXPECT_EQ(back->Find(channel.name)->values, channel.values) << channel.name;
      EXPECT_EQ(back->Find(channel.name)->single, channel.name == "Z");
    }
  }
}

TEST(ExrFile, WhatHalvesCannotHoldIsLimited) {
  Picture picture(3, 1);
  picture.AddChannel("R").values = {1e9f, std::nanf(""), -INFINITY};
  const Result<Picture> back = ReadExr(ExrOf(picture));
  ASSERT_TRUE(back);
  EXPECT_EQ(back->Find("R")->values, (std::vector<float>{65504, 0, -65504}));
}

TEST(ExrFile, ReadsAWindowThatDoesNotBeginAtTheOrigin) {
  TemporaryFolder folder;
  const std::string path = (folder / "window.exr").string();
  std::vector<float> values(5 * 70);
  for (std::size_t i = 0; i < values.size(); ++i) values[i] = static_cast<float>(i);
  {
    const Imath::Box2i window({-7, 100000}, {-3, 100069});
    Imf::Header header(window, window);
    header.channels().insert("Y", Imf::Channel(Imf::FLOAT));
    Imf::OutputFile file(path.c_str(), header);
    Imf::FrameBuffer frame;
    frame.insert("Y", Imf::Slice::Make(Imf::FLOAT, values.data(), window));
    file.setFrameBuffer(frame);
    file.writePixels(70);
  }
  const Result<Picture> back = ReadPicture(path);
  ASSERT_TRUE(back) << back.error().text;
  EXPECT_EQ(back->Find("Y")->values, values);
}

TEST(ExrFile, NamesThatStandTwiceAreRefused) {
  std::ostringstream stream;
  EXPECT_FALSE(WriteExr(Noise(2, 2, {"R", "R"}), stream));
  EXPECT_FALSE(WriteExr(Noise(2, 2, {}), stream));
  EXPECT_FALSE(WriteExr(Noise(0, 2, {"R"}), stream));
}

TEST(PngFile, ComesBackWithinOneStepOfTheCurve) {
  Picture picture = Noise(61, 23, {"R", "G", "B"});
  const Result<Picture> back = ReadPng(PngOf(picture));
  ASSERT_TRUE(back) << back.error().text;
  ASSERT_EQ(back->channels().size(), 3u);
  for (const char* name : {"R", "G", "B"}) {
    for (std::size_t i = 0; i < picture.pixelCount(); ++i) {
      const double shown = std::min(1.0, LinearToSrgb(picture.Find(name)->values[i]));
      EXPECT_NEAR(LinearToSrgb(back->Find(name)->values[i]), shown, 0.5 / 255 + 1e-6);
    }
  }
}

TEST(PngFile, KeepsAlphaAndDoesNotPremultiply) {
  Picture picture(3, 1);
  picture.AddChannel("R").values = {0.5f, 0.25f, 0};
  picture.AddChannel("G").values = {0.1f, 0.05f, 0};
  picture.AddChannel("B").values = {1, 0.5f, 0};
  picture.AddChannel("A").values = {1, 0.5f, 0};
  const Result<Picture> back = ReadPng(PngOf(picture));
  ASSERT_TRUE(back);
  for (std::size_t i = 0; i < 3; ++i) {
    EXPECT_NEAR(back->Find("A")->values[i], picture.Find("A")->values[i], 0.003);
    EXPECT_NEAR(back->Find("R")->values[i], picture.Find("R")->values[i], 0.006);
  }
}

TEST(PngFile, ExposureCountsInStops) {
  Picture picture(1, 1);
  for (const char* name : {"R", "G", "B"}) picture.AddChannel(name, 0.1f);
  const Result<Picture> back = ReadPng(PngOf(picture, {.exposure = 2}));
  ASSERT_TRUE(back);
  EXPECT_NEAR(back->Find("G")->values[0], 0.4, 0.005);
}

TEST(PngFile, ViewsDifferInWhatBecomesOfBrightParts) {
  Picture picture(5, 1);
  for (const char* name : {"R", "G", "B"}) picture.AddChannel(name).values = {0.3f, 1, 2, 8, 1e6f};
  const auto shown = [&](ViewTransform transform) {
    const Result<Picture> back = ReadPng(PngOf(picture, {.transform = transform}));
    return back ? back->Find("G")->values : std::vector<float>(5);
  };
  const auto srgb = shown(ViewTransform::Srgb), filmic = shown(ViewTransform::Filmic);
  EXPECT_NEAR(LinearToSrgb(filmic[0]), LinearToSrgb(srgb[0]), 1.01 / 255);  // below the knee, but for the dither
  EXPECT_NEAR(LinearToSrgb(shown(ViewTransform::Linear)[0]), 0.3, 0.5 / 255 + 1e-6);
  EXPECT_EQ(srgb[1], srgb[2]);
  for (std::size_t i = 1; i < 5; ++i) EXPECT_GT(filmic[i], filmic[i - 1]);
  EXPECT_EQ(filmic[4], 1);
  // No edge at the knee.
  EXPECT_NEAR(FilmicShoulder(0.4 + 1e-6) - FilmicShoulder(0.4 - 1e-6), 2e-6, 1e-9);
}

TEST(PngFile, GradientsOfPicturesAreDitheredWithoutChangingTheirMean) {
  Picture picture(64, 64);
  const double value = 100.3 / 255;  // between two steps
  for (const char* name : {"R", "G", "B"}) {
    picture.AddChannel(name, static_cast<float>(SrgbToLinear(value)));
  }
  const Result<Picture> back = ReadPng(PngOf(picture, {.transform = ViewTransform::Filmic}));
  ASSERT_TRUE(back.ok());
  double sum = 0;
  for (const float v : back->Find("R")->values) sum += LinearToSrgb(v) * 255 / 4096;
  EXPECT_NEAR(sum, 100.3, 0.05);
}

TEST(PngFile, WhatIsNoNumberIsBlack) {
  Picture picture(2, 1);
  for (const char* name : {"R", "G", "B"}) picture.AddChannel(name).values = {std::nanf(""), INFINITY};
  const Result<Picture> back = ReadPng(PngOf(picture));
  ASSERT_TRUE(back);
  EXPECT_EQ(back->Find("R")->values, (std::vector<float>{0, 1}));
}

TEST(Srgb, TheCurveIsContinuousAndItsOwnInverse) {
  EXPECT_NEAR(LinearToSrgb(0.0031308), 12.92 * 0.0031308, 1e-7);
  EXPECT_NEAR(LinearToSrgb(0.00313081), 12.92 * 0.0031308, 1e-6);
  EXPECT_DOUBLE_EQ(LinearToSrgb(1.0), 1);
  for (double v = 0; v <= 1.5; v += 0.001) EXPECT_NEAR(SrgbToLinear(LinearToSrgb(v)), v, 1e-7);
}

class BrokenPictures : public testing::TestWithParam<const char*> {
 protected:
  std::vector<std::byte> Whole() const {
    const Picture picture = Noise(40, 37, {"R", "G", "B", "A"});
    return std::string(GetParam()) == "exr" ? ExrOf(picture) : PngOf(picture);
  }
  Result<Picture> Read(std::span<const std::byte> file) const {
    return std::string(GetParam()) == "exr" ? ReadExr(file) : ReadPng(file);
  }
};

TEST_P(BrokenPictures, EveryCutGivesAnError) {
  const std::vector<std::byte> whole = Whole();
  ASSERT_TRUE(Read(whole));
  int checked = 0;
  for (std::size_t size = 0; size < whole.size(); size += size < 500 ? 1 : 97, ++checked) {
    const Result<Picture> picture = Read(std::span(whole).first(size));
    ASSERT_FALSE(picture) << size;
    EXPECT_EQ(picture.error().kind, ErrorKind::InputFile);
  }
  EXPECT_GT(checked, 500);
}

INSTANTIATE_TEST_SUITE_P(Formats, BrokenPictures, testing::Values("exr", "png"),
                         [](const auto& format) { return std::string(format.param); });

TEST(PictureFile, WritesWhatItReadsAndDescribesIt) {
  TemporaryFolder folder;
  Picture picture = Noise(20, 10, {"G", "R", "B"});
  picture.Find("G")->values.assign(200, 0.5f);
  picture.Find("G")->values[7] = -2;
  ASSERT_TRUE(WritePicture(folder / "a.exr", picture));
  ASSERT_TRUE(WritePicture(folder / "a.PNG", picture, {.exposure = -0.5, .transform = ViewTransform::Filmic}));
  const Result<PictureInfo> exr = DescribePicture(folder / "a.exr"), png = DescribePicture(folder / "a.PNG");
  ASSERT_TRUE(exr && png);
  EXPECT_EQ(exr->format, "OpenEXR");
  EXPECT_EQ(png->format, "PNG");
  EXPECT_EQ(png->toneMap, "filmic, exposure -0.5 stops");
  EXPECT_EQ(exr->width, 20);
  EXPECT_EQ(png->height, 10);
  ASSERT_EQ(exr->channels.size(), 3u);
  for (const ChannelRange& range : exr->channels) {
    if (range.name != "G") continue;
    EXPECT_EQ(range.min, -2);
    EXPECT_EQ(range.max, 0.5);
    EXPECT_NEAR(range.mean, (199 * 0.5 - 2) / 200, 1e-9);
  }
}

TEST(PictureFile, ErrorsNameTheFile) {
  TemporaryFolder folder;
  const Picture picture = Noise(4, 4, {"R", "G", "B"});
  const auto names = [](const Status& s, const char* part) {
    return !s.ok() && s.error().text.find(part) != std::string::npos;
  };
  EXPECT_TRUE(names(WritePicture(folder / "a.gif", picture), "a.gif"));
  EXPECT_TRUE(names(WritePicture(folder / "none" / "a.exr", picture), "none"));
  EXPECT_TRUE(names(WritePicture(folder / "a.png", Noise(4, 4, {"Y"})), "a.png"));
  EXPECT_FALSE(std::filesystem::exists(folder / "a.png"));
  EXPECT_TRUE(names(ReadPicture(folder / "missing.png").status(), "missing.png"));
  test::WriteText(folder / "text.exr", "no picture");
  EXPECT_TRUE(names(ReadPicture(folder / "text.exr").status(), "neither an OpenEXR nor a PNG"));
  EXPECT_EQ(ReadPicture(folder / "text.exr").error().kind, ErrorKind::InputFile);
}

// --- picture compare ------------------------------------------------------------------------------------------------

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
