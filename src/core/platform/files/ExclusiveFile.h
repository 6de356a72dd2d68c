#pragma once
#include <orvi/core/String.h>

#include <memory>

namespace orvi::platform {

/** A file that only one may have open, in this process and in all others. It is removed when it is closed. */
class ExclusiveFile {
public:
    /** Opens the file `path`, as bytesFromPath gives it, making it if it is missing, without waiting. Null when
        somebody else has it open or when it cannot be opened at all. What is no plain file is left alone. */
    static std::unique_ptr<ExclusiveFile> tryOpen(const String_T<char>& path);

    ExclusiveFile(const ExclusiveFile&) = delete;
    ExclusiveFile& operator=(const ExclusiveFile&) = delete;
    ~ExclusiveFile();

    /** False in a fork of the process that opened the file: there the destructor leaves the file's name *
        alone. */
    bool isOwn() const;

private:
    explicit ExclusiveFile(const String_T<char>& path)
        : _path(path)
    {}

    String_T<char> _path;
    int _file = -1;
    int _owner = 0; // the process that holds the lock
};

} // namespace orvi::platform
