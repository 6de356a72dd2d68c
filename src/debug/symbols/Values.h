#pragma once
#include "Expression.h"
#include "base/TextBuffer.h"

namespace orvi::debug {

/** Writes what a variable holds, as its type asks for. Whatever memory it leads to may be missing. */
void writeValue(Dwarf_Die& variable, const std::optional<Operand>& place, TextBuffer& text);

} // namespace orvi::debug
