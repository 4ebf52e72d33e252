#pragma once
// The program: reads the command line, runs a command, tells the outcome by its exit code.

namespace orlix {

int RunProgram(int argumentCount, const char* const* arguments);

}  // namespace orlix
