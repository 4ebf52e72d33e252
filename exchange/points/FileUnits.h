#pragma once
// What lengths and directions of a file mean, for formats that have a place to say so.

namespace orlix {

struct FileUnits {
  double metresPerUnit = 0;  // 0 when nothing is known
  bool upZ = false;          // y otherwise
};

}  // namespace orlix
