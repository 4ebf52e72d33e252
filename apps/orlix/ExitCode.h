#pragma once
// What the program's exit code says.
//   0 done   1 internal   2 usage   3 scene   4 input file   5 output   6 memory   7 diverged   128 + signal

#include "globals/Result.h"

namespace orlix {

int ExitCodeOf(ErrorKind kind);
inline int ExitCodeOfSignal(int signal) { return 128 + signal; }

}  // namespace orlix
