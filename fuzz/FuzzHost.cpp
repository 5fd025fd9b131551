// What a host application provides to the library, for the fuzz targets.
#include <cstdio>

extern "C" {
int DebugFlags = 0;
FILE* DebugFile = stdout;
}
