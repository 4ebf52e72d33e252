#include "scene_file/SceneWriter.h"

#include <gtest/gtest.h>

#include <cmath>

#include "tests/scene_file/TestTypes.h"

namespace orlix {
namespace {

TEST(SceneWriter, AValueThatIsNoNumberIsNamed) {
  BaseDocument document(test::Types());
  document.AddObject(*test::Types().FindName("scene")).Set(1002, std::nan(""));
  const auto text = WriteScene(document);
  ASSERT_FALSE(text.ok());
  EXPECT_NE(text.error().text.find("/objects/0/cell_size"), std::string::npos) << text.error().text;
}

}  // namespace
}  // namespace orlix
