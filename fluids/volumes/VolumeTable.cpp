// The settings of a volume's host object.

#include "fluids/volumes/VolumeBase.h"

namespace orlix {

std::span<const Parameter> VolumeBase::Parameters() {
  static constexpr Choice kDisplayModes[] = {{Display::Off, "off", "Nothing"},
                                             {Display::Box, "box", "The box of the level set"},
                                             {Display::Points, "points", "Nodes near the surface"}};
  static constexpr Choice kVirtualGeometry[] = {{VirtualGeometry::Never, "never", "Never"},
                                                {VirtualGeometry::Always, "always", "Always"},
                                                {VirtualGeometry::Running, "running", "While the body runs"}};

  static constexpr Parameter kParameters[] = {
      LinkParameter(kObjectId, "object", kLinkGeometry, "The object whose polygons are the volume"),
      BoolParameter(kExtendsContainerId, "extends_container", false,
                    "The volume's box counts towards the container's automatic bounds")
          .Fallback(1),
      FloatParameter(kShellId, "shell", 1, "", "Wall of a hollow solid as a share of its largest depth; 1 is solid")
          .Between(0, 1),
      BoolParameter(kFlipSignId, "flip_sign", false, "The outside is solid"),
      IntParameter(kPaddingId, "padding", 3, "cells", "Cells around the geometry's box").Between(0, 1000),
      IntParameter(kThreadsId, "threads", 0, "", "Most workers for building; 0 takes the scene's").Between(0, 64),
      BoolParameter(kHiddenFromLevelSetsId, "hidden_from_level_sets", false,
                    "An obstacle that boundaries and pressure pass over"),
      ChoiceParameter(1019, "virtual_geometry", VirtualGeometry::Always, kVirtualGeometry,
                      "When the body's mesh is given out as the object's"),
      ChoiceParameter(1002, "display", Display::Box, kDisplayModes, "What a viewport shows of the volume"),
      FloatParameter(1004, "display_size", 50, "host units", "Size of the viewport's mark").Min(0),
      VectorParameter(1005, "display_box", {100, 100, 100}, "host units", "Box that a viewport shows without geometry"),
      IntParameter(1009, "display_step", 1, "cells", "Every how many nodes a viewport shows one").Min(1),
      FloatParameter(1011, "display_scale", 1, "", "Factor on what a viewport shows of distances"),
      FloatParameter(1012, "display_width", 1, "", "Width of a viewport's lines").Min(0),
      LinkParameter(1020, "display_object", kLinkHostObject, "Shown in a viewport instead of the volume"),
      ButtonParameter(1013, "make_object", "Makes a primitive and links it"),
      ButtonParameter(1014, "toggle_obstacle", "Adds or removes the Obstacle tag"),
      ButtonParameter(1015, "make_grid_emitter", "Makes an emitter that fills channels in this volume"),
      ButtonParameter(1016, "make_particle_emitter", "Makes an emitter of particles in this volume"),
      ButtonParameter(1017, "make_collider", "Makes a collider that links this volume"),
  };
  return kParameters;
}

}  // namespace orlix
