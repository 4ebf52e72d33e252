#pragma once
// The records of what a simulation's caches keep, one beside the frames of each: by them lost frames are found, and
// those that an earlier run left, and a scene is told that plays them at other times.

#include <map>

#include "fluids/caches/ZQ_C4DCacheName_Operator.h"
#include "run/FrameListener.h"
#include "run/ResultRecord.h"

namespace orlix {

class CacheRecords : public FrameListener {
 public:
  // simulation: the number for all that decides its course. planned: frames of the document.
  CacheRecords(std::uint64_t simulation, FrameRange planned) : simulation_(simulation), planned_(planned) {}
  static std::filesystem::path PathOf(const ZQ_C4DCacheName_Operator& cache);
  Status AfterFrame(const RunState& state) override;

 private:
  std::uint64_t simulation_;
  FrameRange planned_;
  bool lookedAtPlayed_ = false;
  std::map<std::filesystem::path, ResultRecord> records_;
};

}  // namespace orlix
