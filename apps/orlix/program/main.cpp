#include "apps/orlix/Program.h"

int main(int argumentCount, char** arguments) { return orlix::RunProgram(argumentCount, arguments); }
