#include "apps/orlix/ExitCode.h"

namespace orlix {

int ExitCodeOf(ErrorKind kind) {
  switch (kind) {
    case ErrorKind::Internal:
      return 1;
    case ErrorKind::Usage:
      return 2;
    case ErrorKind::Scene:
      return 3;
    case ErrorKind::InputFile:
      return 4;
    case ErrorKind::Output:
      return 5;
    case ErrorKind::Memory:
      return 6;
    case ErrorKind::Diverged:
      return 7;
  }
  return 1;
}

}  // namespace orlix
