#include "fluids/scene/Scene.h"

namespace orlix {

const char* StageLabel(std::int32_t stage) {
  static constexpr const char* kLabels[] = {"Load Cache",
                                            "Start Simulation Stage",
                                            "Initialise Framework sub-stepping",
                                            "Volumes",
                                            "Calculate Bounds",
                                            "Emitters",
                                            "Advection",
                                            "Operators",
                                            "Fluid Dynamics",
                                            "Forces Emission",
                                            "Pressure",
                                            "FLIP",
                                            "Fluid Dynamics Post",
                                            "Channels",
                                            "Channels Advection",
                                            "Channels Operators",
                                            "Finish",
                                            "Save Cache",
                                            "Finish Framework sub-stepping",
                                            "Start Visual Stage",
                                            "Reconstruction",
                                            "Meshing",
                                            "Visual Stage Post",
                                            "Finish Visual Stage",
                                            "Update",
                                            "Process"};
  return stage >= 0 && stage <= kStageProcess ? kLabels[stage] : "";
}

bool Scene::UpdateSpace(double hostUnits, double metres, float cellSize) {
  const GridSpace wanted = GridSpace::FromScale(hostUnits, metres, cellSize);
  if (wanted.Equals(space)) {
    SetFlag(ContainerChanged, false);
    return false;
  }
  space = wanted;
  SetFlag(ContainerChanged, true);
  return true;
}

}  // namespace orlix
