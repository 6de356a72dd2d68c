#pragma once
#include <cstddef>
#include <vector>

/** UTF-16 units without a terminator, so that NULs count like others. */
using Wide = std::vector<wchar_t>;

template <std::size_t size>
Wide wide(const wchar_t (&literal)[size])
{
    return Wide(literal, literal + size - 1);
}
