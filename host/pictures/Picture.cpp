#include "host/pictures/Picture.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

namespace orlix {

Status CheckPictureSize(std::int64_t width, std::int64_t height) {
  if (width >= 1 && height >= 1 && width <= kMaxPictureSide && height <= kMaxPictureSide &&
      width * height <= kMaxPicturePixels) {
    return {};
  }
  return Status::Fail(ErrorKind::Scene,
                      fmt::format("a picture of {} x {} pixels can't be made: sides are 1 to {}, at most {} pixels",
                                  width, height, kMaxPictureSide, kMaxPicturePixels));
}

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
