#pragma once
#include "ProcessMaps.h"
#include "base/Memory.h"
#include <cstddef>
#include <cstdint>
#include <elf.h>
#include <span>

namespace orvi::debug {

/** The program headers of a loaded file, read from its first mapping in the memory of this process. Signal-safe. */
class LoadedImage {
public:
    /** False when the mapping is not the begin of such a file. */
    bool read(const Mapping& first);

    std::uintptr_t start() const { return _start; }
    std::uintptr_t end() const;

    /** Whether the loader maps the first page of the file once more, at `address`: small segments share it. */
    bool mapsFirstPageAt(std::uintptr_t address) const;

    /** Gives the size of the build id, 0 when there is none or no room for it. */
    std::size_t readBuildId(std::span<unsigned char> id) const;

private:
    std::span<const Elf64_Phdr> loads() const { return {_headers, _loadCount}; } // in ascending order
    std::uintptr_t addressOf(const Elf64_Phdr& segment) const;

    std::uintptr_t _start = 0;
    Elf64_Phdr _headers[maxReadBytes / sizeof(Elf64_Phdr)]; // those to load first
    std::size_t _headerCount = 0;
    std::size_t _loadCount = 0;
};

} // namespace orvi::debug
