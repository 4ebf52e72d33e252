#include "host/description/TypeRegistry.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <set>

namespace orlix {
namespace {

constexpr Parameter kOwn[] = {FloatParameter(1, "size", 1, "m", "Size"), IntParameter(2, "count", 1, "", "Count")};
constexpr Parameter kCommon[] = {IntParameter(2, "number", 5, "", "Replaced by the type's own"),
                                 IntParameter(3, "priority", 0, "", "Common")};
constexpr TypeInfo kFluid = {.id = 1300002, .resource = "zq_fluid", .parameters = kOwn, .common = kCommon};
constexpr TypeInfo kServer = {.id = 1300000, .resource = "zq_server", .alias = "scene"};
constexpr TypeInfo kMesh = {.id = 900, .resource = "mesh"};

TypeRegistry Registry() {
  TypeRegistry types;
  types.AddPlanned(1300003, "zq_liquid");
  types.AddPlanned(900, "mesh");
  for (const TypeInfo* type : {&kFluid, &kServer, &kMesh}) types.Add(*type);
  types.AddPlanned(1300002, "zq_fluid");
  return types;
}

TEST(TypeRegistry, FindsByShortNameResourceAliasAndId) {
  const TypeRegistry types = Registry();
  for (const char* name : {"fluid", "zq_fluid", "1300002"}) EXPECT_EQ(types.FindName(name), &kFluid) << name;
  for (const char* name : {"server", "scene", "zq_server"}) EXPECT_EQ(types.FindName(name), &kServer) << name;
  for (const char* name : {"", "zq_", "Fluid", "1300009", "13000020000000", "-1", "liquid"}) {
    EXPECT_EQ(types.FindName(name), nullptr) << name;
  }
}

TEST(TypeRegistry, APlannedTypeStaysSoUntilItIsRegistered) {
  const TypeRegistry types = Registry();
  for (const char* name : {"liquid", "zq_liquid", "1300003"}) EXPECT_TRUE(types.IsPlanned(name)) << name;
  for (const char* name : {"fluid", "mesh", "900", "1300002", "nothing"}) EXPECT_FALSE(types.IsPlanned(name)) << name;
}

TEST(TypeRegistry, AnOwnRowReplacesTheCommonOne) {
  EXPECT_STREQ(kFluid.Find(2)->key, "count");
  EXPECT_EQ(kFluid.FindKey("number"), nullptr);
  EXPECT_EQ(kFluid.FindKey("priority"), &kCommon[1]);
  EXPECT_EQ(kFluid.Find(9), nullptr);
  std::multiset<int> ids;
  kFluid.ForEachParameter([&](const Parameter& row) { ids.insert(row.id); });
  EXPECT_EQ(ids, (std::multiset<int>{1, 2, 3}));
}

TEST(TypeRegistry, TheNearestNameIsNear) {
  const TypeRegistry types = Registry();
  EXPECT_EQ(types.NearestName("fliud"), "fluid");
  EXPECT_EQ(types.NearestName("zq_sever"), "server");
  EXPECT_EQ(types.NearestName("completely different"), "");
}

// The textbook recurrence, without the early exit.
int PlainDistance(const std::string& a, const std::string& b) {
  std::vector<std::vector<int>> d(a.size() + 1, std::vector<int>(b.size() + 1));
  for (std::size_t i = 0; i <= a.size(); ++i) {
    for (std::size_t j = 0; j <= b.size(); ++j) {
      if (i == 0 || j == 0) {
        d[i][j] = static_cast<int>(i + j);
      } else {
        d[i][j] = std::min({d[i - 1][j] + 1, d[i][j - 1] + 1, d[i - 1][j - 1] + (a[i - 1] != b[j - 1])});
      }
    }
  }
  return d[a.size()][b.size()];
}

TEST(EditDistance, EqualsTheTextbookUpToItsLimit) {
  std::mt19937 random(11);
  int within = 0;
  for (int round = 0; round < 2000; ++round) {
    std::string a(random() % 8, 'a'), b(random() % 8, 'a');
    for (std::string* text : {&a, &b}) {
      for (char& c : *text) c = static_cast<char>('a' + random() % 3);
    }
    const int limit = static_cast<int>(random() % 6), exact = PlainDistance(a, b);
    const int distance = EditDistance(a, b, limit);
    if (exact <= limit) {
      EXPECT_EQ(distance, exact) << a << " " << b;
      ++within;
    } else {
      EXPECT_GT(distance, limit) << a << " " << b;
    }
  }
  EXPECT_GT(within, 200);
}

}  // namespace
}  // namespace orlix
