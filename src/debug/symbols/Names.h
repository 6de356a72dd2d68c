#pragma once
#include "CodeScopes.h"
#include "base/TextBuffer.h"

namespace orvi::debug {

enum class Parameters { Kept, Dropped };

/** Writes the name of a function of the chain, with its namespaces, classes and template arguments. Without a
    chain (`function` is null) what the symbol table knows, which may be nothing. */
void writeFunctionName(const CodeScopes& scopes, Dwarf_Die* function, Parameters parameters,
                       TextBuffer& text);

/** Writes the name of a type or a function with the scopes around it. */
void writeQualifiedName(Dwarf_Die entry, TextBuffer& text);

} // namespace orvi::debug
