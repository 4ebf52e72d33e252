#pragma once

namespace orlix {

class iObject;

// A node that runs serially and can do the work of those after it, where that is cheaper together.
class iTakesAlong {
 public:
  virtual ~iTakesAlong() = default;
  // Whether this one's Process could do the work of a node after it, too: then both are in one block, even if the other
  // asks for its own.
  virtual bool CanTakeAlong(const iObject& next) const = 0;
  // Asked about the next node of the block: true when this one's Process, once both are prepared, does the other's work
  // too. It remembers the other until its own Finish.
  virtual bool TakesAlong(iObject& next) = 0;
};

}  // namespace orlix
