#pragma once
// How a value reaches the cells of a channel's grids.
//
//   iEmissionHandler<T>
//   └ ChannelEmissionHandler<T>       of a channel
//     ├ ScalarEmissionHandler         one grid
//     │ └ FireEmissionHandler         values limited to 0..1 first
//     └ VectorEmissionHandler         three grids, each with its own staggering
//
// A loop over many cells takes the handler's writers, by value, once, and calls nothing virtual per cell.

#include <array>
#include <optional>
#include <span>

#include "fluids/channels/ScalarChannels.h"
#include "fluids/channels/VectorChannels.h"

namespace orlix {

enum class EmissionMode : std::int32_t { Add = 0, Set = 1, AddToLimit = 2 };

// What a writer needs of an emission's settings.
struct GridEmission {
  EmissionMode mode = EmissionMode::Add;
  bool spread = false;  // by trilinear weights into the eight cells around a point; limits don't apply then
  std::optional<double> scalarLimit{};  // of AddToLimit; without one the channel's valueMax is it
  std::optional<Vec3D> vectorLimit{};
};

// z layers [begin, end) of a grid.
struct LayerRange {
  std::int32_t begin = 0, end = 0;
  bool Holds(std::int32_t layer) const { return layer >= begin && layer < end; }
};

// Writes into one grid.
class GridEmissionWriter {
 public:
  GridEmissionWriter() = default;
  // cellOffset is taken off the coordinates of a point before they are cut to a cell.
  GridEmissionWriter(ScalarGrid& grid, const Vec3D& cellOffset, const GridEmission& emission, double valueMin,
                     double valueMax, double limit)
      : grid_(grid),
        origin_(grid.space.simMin),
        voxelsPerSim_(grid.space.voxelsPerSim),
        sampleOffset_(CellSampleOffset(grid.gridType)),
        cellOffset_(cellOffset),
        mode_(emission.mode),
        spread_(emission.spread),
        valueMin_(valueMin),
        valueMax_(valueMax),
        limit_(limit) {}

  bool HasGrid() const { return grid_.data != nullptr; }
  // The layers that a value at this height (simulation space) may reach.
  LayerRange LayersOf(double z) const;
  // position in simulation space. Writes only cells in the layers.
  void Emit(double value, const Vec3D& position, const LayerRange& layers) const;
  // Into one cell, by its linear index.
  void EmitAt(double value, std::int64_t index) const;

  // Values are limited to 0..1 before they are written.
  bool limitsValue = false;

 private:
  GridView<double> grid_;
  Vec3D origin_, voxelsPerSim_, sampleOffset_, cellOffset_;
  EmissionMode mode_ = EmissionMode::Add;
  bool spread_ = false;
  double valueMin_ = 0, valueMax_ = 0, limit_ = 0;
};

template <class T>
class iEmissionHandler {
 public:
  virtual ~iEmissionHandler() = default;
  // position in simulation space. indices: linear indices of the cell, one a component, that the caller has worked out
  // already, or none. Does nothing without a grid.
  virtual void Emit(const T& value, const Vec3D& position, const GridEmission& emission,
                    std::span<const std::int64_t> indices) const = 0;
};

template <class T, class Channel>
class ChannelEmissionHandler : public iEmissionHandler<T> {
 public:
  explicit ChannelEmissionHandler(const Channel& channel) : channel_(&channel) {}

 protected:
  const Channel* channel_;
};

class ScalarEmissionHandler : public ChannelEmissionHandler<double, ChannelBase_Scalar> {
 public:
  using ChannelEmissionHandler::ChannelEmissionHandler;
  void Emit(const double& value, const Vec3D& position, const GridEmission& emission,
            std::span<const std::int64_t> indices) const override;
  virtual GridEmissionWriter Writer(const GridEmission& emission) const;
};

class FireEmissionHandler final : public ScalarEmissionHandler {
 public:
  using ScalarEmissionHandler::ScalarEmissionHandler;
  GridEmissionWriter Writer(const GridEmission& emission) const override;
};

class VectorEmissionHandler final : public ChannelEmissionHandler<Vec3D, ChannelBase_Vector> {
 public:
  using ChannelEmissionHandler::ChannelEmissionHandler;
  void Emit(const Vec3D& value, const Vec3D& position, const GridEmission& emission,
            std::span<const std::int64_t> indices) const override;
  std::array<GridEmissionWriter, 3> Writers(const GridEmission& emission) const;
};

// The handler of the class that fits a channel.
std::unique_ptr<ScalarEmissionHandler> CreateEmissionHandler(const ChannelBase_Scalar& channel);
std::unique_ptr<VectorEmissionHandler> CreateEmissionHandler(const ChannelBase_Vector& channel);

}  // namespace orlix
