// What a liquid tells where a user would wonder: the dam break with something missing or misplaced.

#include <gtest/gtest.h>

#include "tests/support/SceneFileRun.h"
#include "tests/support/TemporaryFolder.h"

namespace orlix {
namespace {

// The scene with texts replaced; each must be there.
std::string DamWith(const test::TemporaryFolder& folder,
                    const std::vector<std::pair<std::string, std::string>>& changes) {
  std::string text = test::ReadText(std::filesystem::path(SourceFolder()) / "scenes/dam_break.json");
  for (const auto& [from, to] : changes) {
    const std::size_t at = text.find(from);
    EXPECT_NE(at, std::string::npos) << from;
    if (at != std::string::npos) text.replace(at, from.size(), to);
  }
  test::WriteText(folder / "dam.json", text);
  return (folder / "dam.json").string();
}

struct Case {
  std::vector<std::pair<std::string, std::string>> changes;
  std::string told;  // part of the only warning; none where it is empty
};

TEST(LiquidMessages, NameTheNodeAndTheRemedyOnce) {
  const std::string group = R"({ "type": "particlegroup", "name": "Water" },)";
  const Case cases[] = {
      {{}, ""},
      {{{R"({ "type": "force_gravity", "name": "Fall", "strength": 0 },)", ""}}, "add a force_gravity"},
      {{{R"("group": "Water", "kind": "liquid", "motion_source")",
         R"("group": "Other", "kind": "liquid", "motion_source")"},
        {group, group + R"({ "type": "particlegroup", "name": "Other" },)"}},
       "add a particle_advection"},
      {{{R"("position": [50, 50, 50])", R"("position": [5000, 50, 50])"}}, "stand outside the container"},
      {{{R"("deep_limit": 1000)", R"("deep_limit": 1000, "deep_subdivision": 0, "shallow_subdivision": 0)"}},
       "raise deep_subdivision"},
      {{{R"("deep_limit": 1000)", R"("deep_limit": 1000, "properties": ["Small"])"},
        {group, group + R"({ "type": "property_radius", "name": "Small", "value": 0.1 },)"}},
       "raise property_radius"},
      {{{R"("active_in": "First frame")", R"("active_in": "Never")"},
        {group,
         group +
             R"({ "type": "duration", "name": "Never", "use_frames": true, "start_frame": 5000, "length_frames": 1 },)"}},
       "no particle in the whole run"},
  };
  for (const Case& c : cases) {
    const test::TemporaryFolder folder;
    test::SceneFileRun run(DamWith(folder, c.changes), {"Dam.voxel_size=0.08"});
    run.StepThrough(0, 5);
    run.hook.Conclude();
    int told = 0;
    for (const std::string& warning : run.warnings) {
      if (warning.find("Tank") == std::string::npos) continue;
      ++told;
      EXPECT_NE(warning.find(c.told), std::string::npos) << warning;
    }
    EXPECT_EQ(told, c.told.empty() ? 0 : 1) << c.told;
  }
}

}  // namespace
}  // namespace orlix
