#pragma once
#include <orvi/core/Callback.h>
#include <orvi/core/Export.h>
#include <orvi/core/String.h>

#include <list>
#include <vector>

/** The tree of directories. The separator is "/"; a directory that is given to be looked through ends in it,
    and what is found is made by appending to it. The empty text is the current directory there.

    Paths are UTF-8 to the system. In a name that is none, each stray byte is a lone surrogate of
    U+DC80..U+DCFF: File and the functions here lead back to the same file, while a text made of it for people
    shows U+FFFD. */
namespace orvi {

/** The current directory, which all threads share, without a "/" at the end. The empty string, and a line in
    the log, when there is none. */
ORVI_API String getCurrentDirectory();
/** False, and a line in the log, when `path` leads to no directory. */
ORVI_API bool setCurrentDirectory(const wchar_t* path);

/** Makes each directory along `path` below `base`, which is empty or ends in "/". What exists stays; an empty
    `path` makes nothing, not even `base`. A failure is not reported: what could not be made is not there. */
ORVI_API void createDirectory(const String& path, const String& base);

/** Appends the names, without `path`, of the subdirectories of `path` that are not hidden, in the order in
    which the system lists them. Nothing when they cannot be listed. Throws std::bad_alloc without memory. */
ORVI_API void scanDirectories(const String& path, std::vector<String>& names);

/** Offers the files in the directory `path`, each with its path, to `callback`, as long as that gives true,
    in the order in which the system lists them; with `recursive` those of the subdirectories too, each
    directory's behind its own files. False ends the directory at hand with all below it: the scan goes on
    with the next one that lies beside or above it.

    `extensions` is an array with a null at its end, as {L"txt", L"png", nullptr}: then only files count whose
    name ends in a dot and one of these, in upper or lower case. A file is offered once for each that it
    matches. A null array, or one without an entry, is for all files.

    Files are regular files: on this system each of them counts as one to be archived, and there is nothing
    else in the way of attributes. What begins with a dot is hidden and passed over, with all below it. A
    symbolic link is what it leads to, but no directory is looked through twice in one scan, so that links in a
    circle come to an end. Directories that links lead to come last, behind the whole tree, in the order of
    the paths of their links: so a file that has a path without a link below `path` is reported by that path, others by
    the link that comes first by its text, in whatever order the system lists them. What cannot be opened, or
    has gone meanwhile, is passed over without a word. Depth has no limit but the system's. Without memory the
    scan ends with std::bad_alloc.

    The callback runs inside the listing. It may remove files and directories; of those that it makes in the
    directory at hand nobody knows whether they are offered. */
ORVI_API void scanFiles(const CallbackHandler<bool, const String&>& callback, const String& path,
                        const wchar_t** extensions, bool recursive);
/** The same, appending each path to `files`. */
ORVI_API void scanFiles(std::list<String>& files, const String& path, const wchar_t** extensions,
                        bool recursive);

/** Appends what a scan offers to a list, which it borrows: a callback for scanFiles. */
class ORVI_API ScanFiles {
public:
    explicit ScanFiles(std::list<String>& files) noexcept
        : _files(files)
    {}
    /** True: go on. */
    bool add(const String& path);

private:
    std::list<String>& _files;
};

/** The full path of the running program. Empty when the system does not tell it, as for one of 4,096 bytes or
    more. */
ORVI_API String getAppName();
/** The directory that the program lies in, up to its "/". */
ORVI_API String getAppPath();

} // namespace orvi
