#include "host/render/Picture.h"

#include <algorithm>
#include <cmath>

namespace orlix {

PictureChannel& Picture::AddChannel(std::string name, float value, bool single) {
  channels_.push_back({std::move(name), single, std::vector<float>(pixelCount(), value)});
  return channels_.back();
}

const PictureChannel* Picture::Find(std::string_view name) const {
  const auto found = std::find_if(channels_.begin(), channels_.end(), [&](const auto& c) { return c.name == name; });
  return found == channels_.end() ? nullptr : &*found;
}

PictureChannel* Picture::Find(std::string_view name) {
  return const_cast<PictureChannel*>(static_cast<const Picture*>(this)->Find(name));
}

std::vector<ChannelRange> RangesOf(const Picture& picture) {
  std::vector<ChannelRange> ranges;
  for (const PictureChannel& channel : picture.channels()) {
    ChannelRange range{.name = channel.name};
    std::size_t count = 0;
    double sum = 0;
    for (const float value : channel.values) {
      if (!std::isfinite(value)) {
        ++range.notFinite;
        continue;
      }
      range.min = count == 0 ? value : std::min<double>(range.min, value);
      range.max = count == 0 ? value : std::max<double>(range.max, value);
      sum += value;
      ++count;
    }
    if (count > 0) range.mean = sum / static_cast<double>(count);
    ranges.push_back(std::move(range));
  }
  return ranges;
}

}  // namespace orlix
