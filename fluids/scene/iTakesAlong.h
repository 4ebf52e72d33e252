#pragma once

namespace orlix {

class iObject;

// A node that runs serially and can do the work of those after it, where that is cheaper together.
class iTakesAlong {
 public:
  virtual ~iTakesAlong() = default;
  // Asked about the next node of the block: true when this one's Process, once both are prepared, does the other's work
  // too. It remembers the other until its own Finish.
  virtual bool TakesAlong(iObject& next) = 0;
};

}  // namespace orlix
