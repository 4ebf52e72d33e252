#include "fluids/volume_renderer/RenderCopies.h"

#include <fmt/format.h>

#include <cmath>
#include <new>

#include "fluids/grids/GridResampler.h"
#include "fluids/volume_renderer/Diffusor.h"
#include "host/pictures/Srgb.h"

namespace orlix {

namespace {

RenderGrid CopyOf(const ScalarGrid* source, const CopyInput& input) {
  if (!source || source->count < 2) return {};
  const double scale = input.settings.copyScale;
  if (scale == 1) return RenderGrid(source);
  const GridSpace& space = source->space;
  const Vec3D scaled = Vec3D(space.dims) * scale;
  const VecInt3D cells = Max(SnappedCell(scaled), VecInt3D(2, 2, 2));
  const VecInt3D dims = cells + ExtraCells(source->gridType);
  auto copy = std::make_unique<ScalarGrid>(dims, space.hostSize, static_cast<float>(space.cellSize / scale),
                                           source->gridType, space.hostMin);
  copy->valueOffset = source->valueOffset, copy->valueScale = source->valueScale;
  copy->Fill(source->valueOffset, &input.pool);
  EGridResampler resampler;
  if (resampler.Init(source, copy.get(), false, InterpolationOf(input.settings.copyInterpolation),
                     ResampleOperation::Copy, {}, true, input.pool.count())) {
    static_cast<void>(resampler.Run(input.pool, input.thread));
  }
  return RenderGrid(std::move(copy));
}

// Multiplies each cell by the noise and by what the constraints leave of it.
void Preprocess(RenderGrid& copy, const GasNoise* noise, const ConstraintChain& filters, const CopyInput& input) {
  if (!copy || (!noise && filters.empty())) return;
  ScalarGrid& grid = copy.Own();
  ParallelRange(input.pool, 0, grid.dims.z, [&](int k0, int k1, int worker) {
    std::vector<std::uint8_t> open(static_cast<std::size_t>(grid.dims.x));
    for (int k = k0; k < k1; ++k) {
      if (input.thread && input.thread->TestBreak()) return;
      for (int j = 0; j < grid.dims.y; ++j) {
        double* values = &grid(0, j, k);
        for (int i = 0; i < grid.dims.x; ++i) {
          open[static_cast<std::size_t>(i)] = values[i] != 0;
          if (!noise || values[i] == 0) continue;
          const Vec3D voxel(i + 0.5, j + 0.5, k + 0.5);
          values[i] *= noise->Value(noise->hostSpace() ? grid.space.HostOfVoxel(voxel) : grid.space.SimOfVoxel(voxel));
        }
        if (filters.empty()) continue;
        EvaluateChain(filters, ConstraintRow{0, grid.dims.x, j, k, worker, &grid.space, values, open.data()}, nullptr);
      }
    }
  });
}

void ToLinear(RenderCopies& copies, WorkerPool& pool) {
  for (RenderGrid& copy : copies.colour) {
    if (!copy) continue;
    ScalarGrid& grid = copy.Own();
    ParallelRange(pool, 0, grid.dims.z, [&](int k0, int k1, int) {
      for (std::int64_t c = std::int64_t(k0) * grid.slab; c < std::int64_t(k1) * grid.slab; ++c) {
        grid[c] = SrgbToLinear(grid[c]);
      }
    });
  }
}

void Smooth(RenderGrid& copy, const BlurSettings& blur, const CopyInput& input) {
  if (!copy || blur.iterations == 0 || blur.sigma == 0) return;
  ScalarGrid& grid = copy.Own();
  static_cast<void>(
      Blur(input.pool, input.thread, grid, grid, blur.sigma, blur.iterations, grid.valueOffset, grid.valueScale));
}

// Asks a shader at the centres of a row of cells.
void ColoursOfRow(const ShaderSlot& slot, const GridSpace& space, int j, int k, std::vector<Vec3D>& row) {
  for (int i = 0; i < space.dims.x; ++i) {
    row[static_cast<std::size_t>(i)] = space.HostOfVoxel({i + 0.5, j + 0.5, k + 0.5});
  }
  if (slot.shader) {
    slot.shader->Colours(*slot.object, Shader::PlaceKind::Space, row, row);
  } else {
    for (Vec3D& c : row) c = slot.surface->ColourAt(*slot.object, {c, {}, {}, false});
  }
  for (Vec3D& c : row) c = IsFinite(c) ? Max(c, Vec3D()) : Vec3D();
}

// The shaders' colours multiply the density and the colours; without a colour channel they are the colours.
void ApplyShaders(const CopyInput& input, RenderCopies& copies) {
  if (input.colourShader && copies.density && !copies.colour[2]) {
    for (RenderGrid& copy : copies.colour) {
      auto white = ScalarGrid::CreateLike(*copies.density, kGridScratch);
      white->Fill(1.0, &input.pool);
      copy = RenderGrid(std::move(white));
    }
  }
  const auto apply = [&](const ShaderSlot& slot, const GridSpace& space, auto&& multiply) {
    ParallelRange(input.pool, 0, space.dims.z, [&](int k0, int k1, int) {
      std::vector<Vec3D> row(static_cast<std::size_t>(space.dims.x));
      for (int k = k0; k < k1; ++k) {
        if (input.thread && input.thread->TestBreak()) return;
        for (int j = 0; j < space.dims.y; ++j) {
          ColoursOfRow(slot, space, j, k, row);
          for (int i = 0; i < space.dims.x; ++i) multiply(i, j, k, row[static_cast<std::size_t>(i)]);
        }
      }
    });
  };
  if (input.colourShader && copies.colour[2]) {
    const std::array<ScalarGrid*, 3> colour{&copies.colour[0].Own(), &copies.colour[1].Own(), &copies.colour[2].Own()};
    apply(input.colourShader, colour[0]->space, [&](int i, int j, int k, const Vec3D& c) {
      for (int axis = 0; axis < 3; ++axis) (*colour[axis])(i, j, k) *= c[axis];
    });
  }
  if (input.densityShader && copies.density) {
    ScalarGrid& density = copies.density.Own();
    apply(input.densityShader, density.space,
          [&](int i, int j, int k, const Vec3D& c) { density(i, j, k) *= (c.x + c.y + c.z) / 3; });
  }
}

void MakeAll(const CopyInput& input, RenderCopies& copies) {
  const GasChannels& channels = input.channels;
  copies.density = CopyOf(channels.density, input);
  copies.temperature = CopyOf(channels.temperature, input);
  copies.third = CopyOf(channels.third, input);
  for (int c = 0; c < 3; ++c) copies.colour[c] = CopyOf(channels.colour[c], input);
  // A raw density is sampled as it stands, so its noise belongs into the copy; otherwise each sample has its own.
  const GasNoise* baked = input.settings.rawDensity ? input.noise : nullptr;
  Preprocess(copies.density, baked, input.filters[kFilterDensity], input);
  Preprocess(copies.temperature, nullptr, input.filters[kFilterFire], input);
  Preprocess(copies.third, nullptr, input.filters[kFilterThird], input);
  if (!input.linearInputs) ToLinear(copies, input.pool);
  ApplyShaders(input, copies);
  Smooth(copies.density, input.settings.densityBlur, input);
  Smooth(copies.temperature, input.settings.temperatureBlur, input);
  Smooth(copies.third, input.settings.thirdBlur, input);
}

}  // namespace

const GridSpace& RenderCopies::Space() const {
  static const GridSpace kNone;
  for (const RenderGrid* grid : {&density, &temperature, &third}) {
    if (*grid) return (*grid)->space;
  }
  return kNone;
}

Status MakeRenderCopies(const CopyInput& input, RenderCopies& copies) {
  try {
    MakeAll(input, copies);
  } catch (const std::bad_alloc&) {
    return Status::Fail(
        ErrorKind::Memory,
        fmt::format("the picture's copies of the channels don't fit at a copy_scale of {}", input.settings.copyScale));
  }
  return {};
}

}  // namespace orlix
