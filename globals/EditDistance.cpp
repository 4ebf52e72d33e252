#include "globals/EditDistance.h"

#include <algorithm>
#include <cstdlib>
#include <numeric>
#include <vector>

namespace orlix {

int EditDistance(std::string_view a, std::string_view b, int limit) {
  if (std::abs(static_cast<long>(a.size()) - static_cast<long>(b.size())) > limit) return limit + 1;
  std::vector<int> row(b.size() + 1);
  std::iota(row.begin(), row.end(), 0);
  for (std::size_t i = 1; i <= a.size(); ++i) {
    int diagonal = row[0];
    int smallest = row[0] = static_cast<int>(i);
    for (std::size_t j = 1; j <= b.size(); ++j) {
      const int substituted = diagonal + (a[i - 1] != b[j - 1]);
      diagonal = row[j];
      row[j] = std::min({row[j] + 1, row[j - 1] + 1, substituted});
      smallest = std::min(smallest, row[j]);
    }
    if (smallest > limit) return limit + 1;
  }
  return row[b.size()];
}

}  // namespace orlix
