// The parameter tables of the channels: five types that share most rows.

#include <algorithm>
#include <array>

#include "fluids/channels/ScalarChannels.h"
#include "fluids/channels/VectorChannels.h"

namespace orlix {

namespace {

constexpr int kDisplayRangeId = 1018;

constexpr std::array kShared = {
    BoolParameter(ScalarGridChannel::kClearEachStepId, "clear_each_step", false,
                  "Filled with the background value in each sub-step"),
    BoolParameter(ScalarGridChannel::kKeepPreviousId, "keep_previous", true,
                  "Keeps the values of the step before, which advection needs"),
    BoolParameter(ScalarGridChannel::kBoundsId, "bounds", true,
                  "The channel's content counts for the automatic container"),
    IntParameter(1000, "display_mode", 0, "", "Display in a view: mode"),
    BoolParameter(1008, "display", false, "Display in a view: on"),
    IntParameter(1012, "display_axis", 0, "", "Display in a view: axis of the slice"),
    FloatParameter(1013, "display_slice", 0.5, "", "Display in a view: place of the slice"),
    FloatParameter(1014, "display_threshold", 0.01, "", "Display in a view: least value"),
    FloatParameter(1015, "display_scale", 1.0, "", "Display in a view: scale")
        .ShownWhen(kDisplayRangeId, Relation::IsNot, 0),
    VectorParameter(1016, "display_colour", {1, 1, 0}, "", "Display in a view: colour"),
    BoolParameter(1017, "display_box", true, "Display in a view: the box"),
    IntParameter(kDisplayRangeId, "display_range", 0, "", "Display in a view: range of values"),
    FloatParameter(1019, "display_max", 1.0, "", "Display in a view: greatest value"),
    FloatParameter(1020, "display_opacity", 0.03, "", "Display in a view: opacity"),
    IntParameter(1022, "display_step", 1, "cells", "Display in a view: step"),
    IntParameter(1023, "display_quality", 2, "", "Display in a view: quality"),
};

template <std::size_t N>
constexpr auto WithShared(const std::array<Parameter, N>& own) {
  std::array<Parameter, N + kShared.size()> rows;
  std::copy(own.begin(), own.end(), rows.begin());
  std::copy(kShared.begin(), kShared.end(), rows.begin() + N);
  return rows;
}

constexpr Parameter ValueMin() {
  return FloatParameter(ScalarGridChannel::kValueMinId, "value_min", 0, "", "What counts as empty");
}
constexpr Parameter ValueMax(double limit) {
  return FloatParameter(ScalarGridChannel::kValueMaxId, "value_max", limit, "",
                        "Values are limited to it after each sub-step");
}
constexpr Parameter Background() {
  return FloatParameter(ScalarGridChannel::kBackgroundId, "background", 0, "", "What a cell holds after a reset");
}

constexpr auto kScalar = WithShared(std::array{ValueMin(), ValueMax(1.0), Background()});
constexpr auto kTemperature = WithShared(std::array{ValueMin().Hidden(), ValueMax(5000.0), Background()});
constexpr auto kFuel =
    WithShared(std::array{ValueMin().Hidden(), ValueMax(1.0), Background(),
                          FloatParameter(FuelGridChannel::kIgnitionTemperatureId, "ignition_temperature", 600.0, "K",
                                         "Temperature from which the fuel burns")
                              .Min(0)});
constexpr auto kFire = WithShared(std::array{
    ValueMin().Hidden(), ValueMax(1.0).Hidden(), Background(),
    FloatParameter(FireGridChannel::kFlameTemperatureId, "flame_temperature", 1600.0, "K",
                   "Temperature that burning fuel reaches")
        .Min(0),
    FloatParameter(FireGridChannel::kCoolingTimeColdId, "cooling_time_cold", 2.5, "s", "Cooling time at the cold end")
        .Min(0),
    FloatParameter(FireGridChannel::kCoolingTimeHotId, "cooling_time_hot", 0.5, "s", "Cooling time at the hot end")
        .Min(0)
        .Fallback(1.0)});
constexpr auto kVector = WithShared(std::array{
    VectorParameter(ScalarGridChannel::kValueMinId, "value_min", {0, 0, 0}, "",
                    "What counts as empty, a component each"),
    VectorParameter(ScalarGridChannel::kValueMaxId, "value_max", {1, 1, 1}, "",
                    "Values are limited to it after each sub-step"),
    VectorParameter(ScalarGridChannel::kBackgroundId, "background", {0, 0, 0}, "", "What a cell holds after a reset"),
    IntParameter(1053, "display_component", 0, "", "Display in a view: component").Between(0, 2)});

TypeInfo ChannelType(int id, const char* resource, const char* className, const char* label, const char* text,
                     std::span<const Parameter> rows) {
  return {
      .id = id,
      .resource = resource,
      .className = className,
      .label = label,
      .text = text,
      .kinds = kLinkChannel,
      .parameters = rows,
      .common = PlainNodeParameters(),
  };
}

}  // namespace

const TypeInfo& ScalarGridChannel::Type() {
  static const TypeInfo kType = ChannelType(1300027, "zq_channel_scalar", "C4D_ScalarChannel_Object", "Scalar",
                                            "A number in each cell: smoke, dust, a mask.", kScalar);
  return kType;
}

const TypeInfo& TemperatureGridChannel::Type() {
  static const TypeInfo kType =
      ChannelType(1300112, "zq_channel_temp", "C4D_TempChannel_Object", "Temperature",
                  "Temperature above the surroundings; kelvin in pictures is the value + 273.5.", kTemperature);
  return kType;
}

const TypeInfo& FuelGridChannel::Type() {
  static const TypeInfo kType = ChannelType(1300028, "zq_channel_fuel", "C4D_FuelChannel_Object", "Fuel",
                                            "Fuel that combustion burns from its ignition temperature on.", kFuel);
  return kType;
}

const TypeInfo& FireGridChannel::Type() {
  static const TypeInfo kType = ChannelType(1300029, "zq_channel_fire", "C4D_FireChannel_Object", "Fire",
                                            "Flames: what combustion makes, and how they cool.", kFire);
  return kType;
}

const TypeInfo& VectorGridChannel::Type() {
  static const TypeInfo kType = ChannelType(1300030, "zq_channel_vector", "C4D_VectorChannel_Object", "Vector",
                                            "A vector in each cell: colour, texture coordinates.", kVector);
  return kType;
}

}  // namespace orlix
