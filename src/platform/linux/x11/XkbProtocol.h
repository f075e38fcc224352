#pragma once

// <xcb/xkb.h> for C++: it is written for C, where `explicit` is a name like any other.

#include <xcb/xcb.h>

#if defined(__clang__)
#pragma clang diagnostic push
#pragma clang diagnostic ignored "-Wkeyword-macro"
#endif
#define explicit explicit_parts
#include <xcb/xkb.h>
#undef explicit
#if defined(__clang__)
#pragma clang diagnostic pop
#endif
