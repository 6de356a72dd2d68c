#pragma once
#include <cstdint>
#include <elfutils/libdwfl.h>

namespace orvi::debug {

/** What is known of an address, each part cut where its place ends; empty or 0: nothing. */
struct SourcePlace {
    char function[2048];
    char file[4096];
    int line;
};

/** Looks up the instruction that holds the byte at `address`. Of several functions that were inlined into one
    another, the innermost counts. */
void findSourcePlace(Dwfl* dwfl, std::uintptr_t address, SourcePlace& place);

} // namespace orvi::debug
