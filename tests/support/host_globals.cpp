// The library imports these from its host application.
#include <cstdio>

extern "C" {
int DebugFlags = 0;
FILE* DebugFile = stdout;
}
