#pragma once
#include "LoadedImage.h"
#include "ProcessMaps.h"
#include <climits>
#include <span>

namespace orvi::debug {

/** Goes through the program, the libraries and the kernel's page that /proc/<task>/maps shows, in the order of their
    addresses, without opening a file of theirs. The task is one of this process, or of one that this process is
    a fresh copy of: the modules are read in its own memory. Some 24 KB large. Signal-safe.

    Stands in for dwfl_linux_proc_report, which takes two loads of the same file that lie side by side for
    one: that happens to the C library of a second namespace. */
class MappedModules {
public:
    explicit MappedModules(pid_t task)
        : _maps(task)
    {}

    /** Goes to the next module, which the questions below are about. False at the end. */
    bool next();

    const char* path() const { return _path; }
    const LoadedImage& image() const { return _image; }
    /** The numbers behind the name libname.so, as in libname.so.1.2.3; else 0. */
    void version(std::span<unsigned int, 4> numbers) const;

private:
    bool begins(const Mapping& mapping);
    bool continues(const Mapping& mapping) const;

    ProcessMaps _maps;
    Mapping _mapping; // the first one behind the module, if any
    bool _isMappingLeft = false;
    char _path[PATH_MAX + sizeof " (deleted)"] = "";
    LoadedImage _image;
};

} // namespace orvi::debug
