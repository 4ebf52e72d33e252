#pragma once
// How different two pictures look to the eye. Differences of single pixels, as grain makes them, count for little:
// both pictures are softened first, as the eye does at a usual distance.

#include "globals/Result.h"
#include "host/pictures/Picture.h"

namespace orlix {

// In units of the CIE 1976 colour difference, of which about 2.3 can just be seen (Mahy et al. 1994).
struct PictureDifference {
  double mean = 0, largest = 0;
  double visibleShare = 0;  // of the pixels, with more than kVisibleDifference
};
inline constexpr double kVisibleDifference = 2.3;

// Compares R, G and B as a display shows them, light above 1 as white. Pictures of different sizes or without colours
// can't be compared.
Result<PictureDifference> ComparePictures(const Picture& a, const Picture& b);

struct PictureTolerance {
  double mean = 0.7, largest = 10;
  double visibleShare = 0.02;
};
inline bool LooksAlike(const PictureDifference& difference, const PictureTolerance& tolerance = {}) {
  return difference.mean <= tolerance.mean && difference.largest <= tolerance.largest &&
         difference.visibleShare <= tolerance.visibleShare;
}

}  // namespace orlix
