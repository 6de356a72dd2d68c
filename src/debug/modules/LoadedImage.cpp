#include "LoadedImage.h"

#include <algorithm>
#include <cstring>
#include <unistd.h>
#include <utility>

namespace orvi::debug {
namespace {

std::uint64_t pageBytes() { return static_cast<std::uint64_t>(getpagesize()); }
std::uint64_t page(std::uint64_t address) { return address & ~(pageBytes() - 1); }
std::uint64_t pageEnd(const Elf64_Phdr& load) { return page(load.p_vaddr + load.p_memsz + pageBytes() - 1); }

std::uint64_t roundUp(std::uint64_t size, std::uint64_t unit) { return (size + unit - 1) / unit * unit; }

/** Looks for the build id among the notes of one segment. */
std::span<const unsigned char> findBuildId(std::span<const unsigned char> notes, std::uint64_t alignment)
{
    while (notes.size() >= sizeof(Elf64_Nhdr)) {
        Elf64_Nhdr note;
        std::memcpy(&note, notes.data(), sizeof note);
        const std::uint64_t text = roundUp(sizeof note + note.n_namesz, alignment);
        const std::uint64_t size = roundUp(text + note.n_descsz, alignment);
        if (text + note.n_descsz > notes.size())
            break;
        if (note.n_type == NT_GNU_BUILD_ID && note.n_namesz == sizeof ELF_NOTE_GNU &&
            std::memcmp(notes.data() + sizeof note, ELF_NOTE_GNU, sizeof ELF_NOTE_GNU) == 0)
            return notes.subspan(text, note.n_descsz);
        notes = notes.subspan(std::min<std::size_t>(size, notes.size()));
    }
    return {};
}

} // namespace

bool LoadedImage::read(const Mapping& first)
{
    Elf64_Ehdr header;
    if (first.offset != 0 || first.end - first.start < sizeof header ||
        !readMemoryNow(first.start, &header, sizeof header))
        return false;
    if (std::memcmp(header.e_ident, ELFMAG, SELFMAG) != 0 || header.e_ident[EI_CLASS] != ELFCLASS64 ||
        header.e_phentsize != sizeof(Elf64_Phdr) || header.e_phnum > std::size(_headers))
        return false;
    const std::size_t size = header.e_phnum * sizeof(Elf64_Phdr);
    const std::size_t mapped = first.end - first.start;
    if (header.e_phoff > mapped || size > mapped - header.e_phoff ||
        !readMemoryNow(first.start + header.e_phoff, _headers, size))
        return false;

    _headerCount = header.e_phnum;
    _loadCount = 0;
    for (std::size_t index = 0; index < _headerCount; ++index) {
        if (_headers[index].p_type == PT_LOAD)
            std::swap(_headers[_loadCount++], _headers[index]);
    }
    _start = first.start;
    return _loadCount != 0 && start() < end();
}

std::uintptr_t LoadedImage::addressOf(const Elf64_Phdr& segment) const
{
    return _start + segment.p_vaddr - page(loads().front().p_vaddr);
}

std::uintptr_t LoadedImage::end() const
{
    return _start + pageEnd(loads().back()) - page(loads().front().p_vaddr);
}

bool LoadedImage::mapsFirstPageAt(std::uintptr_t address) const
{
    return std::ranges::any_of(loads(), [&](const Elf64_Phdr& load) {
        return page(load.p_offset) == 0 && page(addressOf(load)) == address;
    });
}

std::size_t LoadedImage::readBuildId(std::span<unsigned char> id) const
{
    for (std::size_t index = _loadCount; index < _headerCount; ++index) {
        const Elf64_Phdr& segment = _headers[index];
        unsigned char notes[1024];
        const std::size_t size = std::min<std::size_t>(segment.p_memsz, sizeof notes);
        if (segment.p_type != PT_NOTE || !readMemoryNow(addressOf(segment), notes, size))
            continue;
        const auto found = findBuildId(std::span(notes, size), segment.p_align == 8 ? 8 : 4);
        if (!found.empty() && found.size() <= id.size()) {
            std::ranges::copy(found, id.begin());
            return found.size();
        }
    }
    return 0;
}

} // namespace orvi::debug
