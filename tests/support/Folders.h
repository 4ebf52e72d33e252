#pragma once
// Where the project's files and the built programs stand.

#include <string>

namespace orlix {

std::string SourceFolder();
std::string ProgramFolder();

}  // namespace orlix
