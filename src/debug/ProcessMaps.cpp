#include "ProcessMaps.h"

#include "DebugFiles.h"
#include "Memory.h"
#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <elf.h>
#include <fcntl.h>
#include <span>
#include <string_view>
#include <unistd.h>

namespace orvi::debug {
namespace {

struct Mapping {
    std::uintptr_t start = 0;
    std::uintptr_t end = 0;
    std::uint64_t offset = 0;
    bool executable = false;
    std::string_view path; // empty for anonymous memory
};

// "start-end rwxp offset device inode   path", numbers in hexadecimal, with the line's end behind it
bool parse(std::string_view line, Mapping& mapping)
{
    char* place = nullptr;
    mapping.start = std::strtoull(line.data(), &place, 16);
    if (*place != '-')
        return false;
    mapping.end = std::strtoull(place + 1, &place, 16);
    const std::string_view rest(place, static_cast<std::size_t>(line.data() + line.size() - place));
    constexpr std::size_t executePlace = 3, offsetPlace = 6; // " rwxp offset"
    if (rest.size() <= offsetPlace)
        return false;
    mapping.executable = rest[executePlace] == 'x';
    mapping.offset = std::strtoull(place + offsetPlace, nullptr, 16);
    const std::size_t path = rest.find_first_of("/[");
    mapping.path = path == std::string_view::npos ? std::string_view() : rest.substr(path);
    return true;
}

/** The program headers of a loaded file, read from its first mapping. */
class LoadedImage {
public:
    bool read(const Mapping& first);

    std::uintptr_t start() const { return _start; }
    std::uintptr_t end() const { return _start + pageEnd(loads().back()) - page(loads().front().p_vaddr); }

    /** Whether the loader maps the first page of the file once more, at `address`: small segments share it.
     */
    bool mapsFirstPageAt(std::uintptr_t address) const
    {
        return std::ranges::any_of(loads(), [&](const Elf64_Phdr& load) {
            return page(load.p_offset) == 0 &&
                   page(load.p_vaddr) - page(loads().front().p_vaddr) == address - _start;
        });
    }

private:
    static std::uint64_t page(std::uint64_t address) { return address & ~(pageBytes() - 1); }
    static std::uint64_t pageEnd(const Elf64_Phdr& load)
    {
        return page(load.p_vaddr + load.p_memsz + pageBytes() - 1);
    }
    static std::uint64_t pageBytes() { return static_cast<std::uint64_t>(getpagesize()); }
    std::span<const Elf64_Phdr> loads() const { return {_loads, _loadCount}; } // in ascending order

    std::uintptr_t _start = 0;
    Elf64_Phdr _loads[maxReadBytes / sizeof(Elf64_Phdr)];
    std::size_t _loadCount = 0;
};

bool LoadedImage::read(const Mapping& first)
{
    Elf64_Ehdr header;
    if (first.offset != 0 || first.end - first.start < sizeof header ||
        !readMemory(first.start, &header, sizeof header))
        return false;
    if (std::memcmp(header.e_ident, ELFMAG, SELFMAG) != 0 || header.e_ident[EI_CLASS] != ELFCLASS64 ||
        header.e_phentsize != sizeof(Elf64_Phdr) || header.e_phnum > std::size(_loads))
        return false;
    const std::size_t size = header.e_phnum * sizeof(Elf64_Phdr);
    const std::size_t mapped = first.end - first.start;
    if (header.e_phoff > mapped || size > mapped - header.e_phoff ||
        !readMemory(first.start + header.e_phoff, _loads, size))
        return false;

    const auto isNoLoad = [](const Elf64_Phdr& entry) { return entry.p_type != PT_LOAD; };
    _loadCount = static_cast<std::size_t>(std::remove_if(_loads, _loads + header.e_phnum, isNoLoad) - _loads);
    _start = first.start;
    return _loadCount != 0 && start() < end();
}

/** Puts the mappings of each module together. */
class ModuleReporter {
public:
    explicit ModuleReporter(Dwfl* dwfl)
        : _dwfl(dwfl)
    {}
    void take(const Mapping&);
    void finish();

private:
    bool continuesModule(const Mapping&) const;

    Dwfl* _dwfl;
    char _path[PATH_MAX + sizeof " (deleted)"] = ""; // empty: between modules
    LoadedImage _image;
    bool _executable = false;
};

void ModuleReporter::take(const Mapping& mapping)
{
    if (mapping.path.empty())
        return;
    if (continuesModule(mapping)) {
        _executable |= mapping.executable;
        return;
    }
    finish();
    const bool isFile = mapping.path.front() == '/' && !mapping.path.starts_with("/dev/");
    if ((!isFile && mapping.path != kernelPageName) || mapping.path.size() >= sizeof _path ||
        !_image.read(mapping))
        return;
    _path[mapping.path.copy(_path, sizeof _path - 1)] = '\0';
    _executable = mapping.executable;
}

bool ModuleReporter::continuesModule(const Mapping& mapping) const
{
    return mapping.path == _path && mapping.start < _image.end() &&
           (mapping.offset != 0 || _image.mapsFirstPageAt(mapping.start));
}

void ModuleReporter::finish()
{
    // Files that are mapped only to be read, as libelf does, are no modules.
    if (_path[0] != '\0' && _executable)
        dwfl_report_module(_dwfl, _path, _image.start(), _image.end());
    _path[0] = '\0';
}

std::size_t readSome(int file, std::span<char> target)
{
    ssize_t count;
    do
        count = read(file, target.data(), target.size());
    while (count < 0 && errno == EINTR);
    return count > 0 ? static_cast<std::size_t>(count) : 0;
}

} // namespace

bool reportMappedModules(Dwfl* dwfl)
{
    const int file = open("/proc/self/maps", O_RDONLY | O_CLOEXEC);
    if (file < 0)
        return false;
    ModuleReporter reporter(dwfl);
    char buffer[4 * PATH_MAX]; // holds the longest line
    std::size_t filled = 0;
    bool any = false;
    while (const std::size_t count = readSome(file, std::span(buffer).subspan(filled))) {
        filled += count;
        std::string_view text(buffer, filled);
        for (std::size_t length; (length = text.find('\n')) != std::string_view::npos;
             text.remove_prefix(length + 1)) {
            Mapping mapping;
            if (parse(text.substr(0, length), mapping)) {
                reporter.take(mapping);
                any = true;
            }
        }
        std::memmove(buffer, text.data(), text.size());
        filled = text.size();
    }
    reporter.finish();
    close(file);
    return any;
}

} // namespace orvi::debug
