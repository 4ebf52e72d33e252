#include "host/objects/BaseContainer.h"

#include <gtest/gtest.h>

#include <map>
#include <random>

namespace orlix {
namespace {

TEST(BaseContainer, BehavesAsAMapUnderRandomChanges) {
  std::mt19937 random(5);
  BaseContainer container;
  std::map<int, std::int64_t> model;
  for (int step = 0; step < 5000; ++step) {
    const int id = static_cast<int>(random() % 60) - 30;
    if (random() % 3) {
      container.Set(id, std::int64_t(step));
      model[id] = step;
    } else {
      container.Remove(id);
      model.erase(id);
    }
    const int probe = static_cast<int>(random() % 60) - 30;
    ASSERT_EQ(container.Has(probe), model.contains(probe));
    ASSERT_EQ(AsInt(container.Get(probe), -1), model.contains(probe) ? model[probe] : -1);
  }
  ASSERT_EQ(container.entries().size(), model.size());
  auto expected = model.begin();
  for (const auto& [id, value] : container.entries()) EXPECT_EQ(id, (expected++)->first);
}

TEST(BaseContainer, AnEmptyValueIsNone) {
  BaseContainer container;
  EXPECT_FALSE(container.Has(1));
  container.Set(1, {});
  EXPECT_FALSE(container.Has(1));
  container.Remove(2);
}

}  // namespace
}  // namespace orlix
