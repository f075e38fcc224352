// The one file that holds the loader's body, whose warnings are not ours.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wold-style-cast"
#pragma GCC diagnostic ignored "-Wconversion"
#pragma GCC diagnostic ignored "-Wshadow"
#pragma GCC diagnostic ignored "-Wpedantic"
#define VOLK_IMPLEMENTATION
#include <volk.h>
#pragma GCC diagnostic pop
