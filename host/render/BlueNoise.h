#pragma once
// A tile of numbers in which neighbours differ: errors of neighbouring pixels that start from them cancel in the eye,
// and what is left looks like fine film grain. Made once by void and cluster (Ulichney 1993).

namespace orlix {

inline constexpr int kBlueNoiseSide = 64;

// In (0, 1), each of 4096 values once a tile; the tile repeats in both directions. Coordinates may be negative.
double BlueNoise(int x, int y);

}  // namespace orlix
