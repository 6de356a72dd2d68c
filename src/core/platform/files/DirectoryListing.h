#pragma once
#include <orvi/core/String.h>

#include <cstdint>
#include <utility>

namespace orvi::platform {

/** The files and subdirectories of one directory, one after the other, in the order in which the system tells
    them. A symbolic link counts as what it leads to.

    Passed over are hidden ones, which begin with a dot, and what is neither a directory nor a regular file.
    Directories may change under the listing: what comes or goes meanwhile may be told or not. */
class DirectoryListing {
public:
    struct Entry {
        String name;
        bool isDirectory; // or leads to one
        bool isLink;
    };
    /** Equal for the same directory, whatever path led to it. */
    using Identity = std::pair<std::uint64_t, std::uint64_t>;

    /** `path` may be longer than other calls of the system take; empty is the current directory. Throws
        std::bad_alloc without memory, as next does. */
    explicit DirectoryListing(const String& path);
    ~DirectoryListing();
    DirectoryListing(const DirectoryListing&) = delete;
    DirectoryListing& operator=(const DirectoryListing&) = delete;

    /** False when `path` leads to no directory, or to one that may not be read. */
    bool isOpen() const noexcept { return _stream != nullptr; }
    const Identity& identity() const noexcept { return _identity; }

    /** The next entry of an open listing; false at its end. */
    bool next(Entry& entry);

private:
    void* _stream = nullptr;
    Identity _identity{};
};

/** Makes a directory, for everybody within the process's mask; false when there is something of this name
    already, or on failure. The path may be long, as above. */
bool makeDirectory(const String& path);

} // namespace orvi::platform
