#pragma once
#include "CodeScopes.h"
#include <cstdint>
#include <elfutils/libdwfl.h>

namespace orvi::debug {

/** What is known of an address, each part cut where its place ends; empty or 0: nothing. */
struct SourcePlace {
    char function[2048];
    char file[4096];
    int line;
};

/** As the parts of a place leave the module. */
inline const char* nullIfEmpty(const char* text) { return *text == '\0' ? nullptr : text; }

/** Looks up the instruction that holds the byte at `address`. Of several functions that were inlined into one
    another, the innermost counts. */
void findSourcePlace(Dwfl* dwfl, std::uintptr_t address, SourcePlace& place);

/** Sets the file and the line of the instruction. */
void findLine(const CodeScopes& scopes, SourcePlace& place);

/** Sets the file and the line where the function `inlined` of the chain was called. */
void findCallLine(CodeScopes& scopes, Dwarf_Die& inlined, SourcePlace& place);

} // namespace orvi::debug
