#include "DebugFiles.h"

#include "base/OwnFile.h"
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <elfutils/libdwelf.h>
#include <string_view>
#include <unistd.h>

namespace orvi::debug {
namespace {

std::string_view buildId(Dwfl_Module* module)
{
    const unsigned char* bytes = nullptr;
    GElf_Addr address = 0;
    const int size = dwfl_module_build_id(module, &bytes, &address);
    return size > 0 ? std::string_view(reinterpret_cast<const char*>(bytes), static_cast<std::size_t>(size))
                    : std::string_view();
}

bool hasBuildId(int file, std::string_view id)
{
    Elf* elf = elf_begin(file, ELF_C_READ_MMAP, nullptr);
    if (elf == nullptr)
        return false;
    const void* bytes = nullptr;
    const ssize_t size = dwelf_elf_gnu_build_id(elf, &bytes);
    const bool same =
        size > 0 && std::string_view(static_cast<const char*>(bytes), static_cast<std::size_t>(size)) == id;
    elf_end(elf);
    return same;
}

// Opens the file that a debug link names, in the three customary places, if it fits the module.
int openLinkedFile(const char* modulePath, const char* link, std::string_view id, char** foundPath)
{
    const std::string_view path(modulePath);
    const std::string_view directory = path.substr(0, path.rfind('/') + 1);
    const struct {
        const char *before, *after;
    } places[] = {{"", ""}, {"", ".debug/"}, {"/usr/lib/debug", ""}};
    for (const auto& place : places) {
        char candidate[PATH_MAX];
        const int length =
            std::snprintf(candidate, sizeof candidate, "%s%.*s%s%s", place.before,
                          static_cast<int>(directory.size()), directory.data(), place.after, link);
        if (length < 0 || length >= PATH_MAX)
            continue;
        const int file = openToRead(candidate);
        if (file < 0)
            continue;
        if (hasBuildId(file, id) && (*foundPath = strdup(candidate)) != nullptr)
            return file;
        close(file);
    }
    return -1;
}

int findModuleFile(Dwfl_Module* module, void**, const char* name, Dwarf_Addr start, char** path, Elf** elf)
{
    if (std::strcmp(name, kernelPageName) == 0) {
        Dwarf_Addr end = start;
        dwfl_module_info(module, nullptr, nullptr, &end, nullptr, nullptr, nullptr, nullptr);
        *elf = elf_memory(reinterpret_cast<char*>(start), end - start);
        return -1;
    }
    const int file = openToRead(name);
    if (file >= 0)
        *path = strdup(name);
    return file;
}

// As dwfl_standard_find_debuginfo, which asks a server in the end when DEBUGINFOD_URLS is set: whoever prints
// a call stack does not expect to wait for a network. It does so only for a module with a build id.
int findDebugFile(Dwfl_Module* module, void** data, const char* name, Dwarf_Addr start, const char* path,
                  const char* link, GElf_Word linkChecksum, char** foundPath)
{
    const std::string_view id = buildId(module);
    if (id.empty())
        return aboveStandardStreams(
            dwfl_standard_find_debuginfo(module, data, name, start, path, link, linkChecksum, foundPath));
    const int file = aboveStandardStreams(
        dwfl_build_id_find_debuginfo(module, data, name, start, path, link, linkChecksum, foundPath));
    if (file >= 0 || path == nullptr || link == nullptr)
        return file;
    return openLinkedFile(path, link, id, foundPath);
}

} // namespace

const Dwfl_Callbacks debugFileCallbacks = {findModuleFile, findDebugFile, nullptr, nullptr};

} // namespace orvi::debug
