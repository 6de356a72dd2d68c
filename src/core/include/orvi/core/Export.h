#pragma once

/** Marks what liborvi_core.so exports; everything else in it is hidden. */
#define ORVI_API __attribute__((visibility("default")))

static_assert(
    sizeof(wchar_t) == 2 && wchar_t(-1) == 0xFFFF,
    "orvi strings are UTF-16: compile with -fshort-wchar (the CMake target orvi::core and the pkg-config "
    "file of orvi_core carry the flag)");
