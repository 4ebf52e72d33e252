#pragma once
// How a frame becomes a path: the only place that knows it. File is what frames are read and written through, Path what
// names one.

#include <cstdint>
#include <string>

namespace orlix {

template <class File, class Path>
class iZQCacheName_Operator {
 public:
  virtual void Reset() = 0;
  // False when the file isn't there or can't be opened; path is set in any case.
  virtual bool OpenForRead(File& file, std::int32_t frame, Path& path) = 0;
  virtual bool OpenForWrite(File& file, std::int32_t frame, Path& path) = 0;
  virtual ~iZQCacheName_Operator() = default;

  Path folder;
  std::string stem;
  std::string extension = "cache";  // without a dot
  std::string defaultStem = "orlixcache";
  std::int32_t digits = 5;
};

}  // namespace orlix
