#pragma once
#include <cstddef>

namespace orvi::platform {

/** Writes a file anew so that its old contents stand until the new ones are on the disc as a whole: they go
    into a draft beside it, which takes the file's name in one step. When this object goes earlier, nothing has
    changed and the draft is gone; it stays, as ".orvi-" and 16 digits, only where the process is killed.

    Where the path leads by symbolic links, they stay and the file behind them is replaced, and what else has
    that file open or linked by another name keeps the old one. The new file has the old one's permissions, and
    its owner and group where this user may give them.

    Paths are as bytesFromPath gives them. The reason of a failure is the calling thread's last error. */
class ReplacedFile {
public:
    enum class Opening {
        Failed,
        Ready,
        Unsuitable // a device, a pipe or the like: it has no contents to keep, and is written as it is
    };

    ReplacedFile() noexcept = default;
    ~ReplacedFile() { drop(); }
    ReplacedFile(const ReplacedFile&) = delete;
    ReplacedFile& operator=(const ReplacedFile&) = delete;

    /** Makes the draft. The file may be missing, but not its directory, in which this user has to be allowed to
        make files. One that exists has to be open to this user for reading and writing. Only once. */
    Opening open(const char* path);
    /** False when not all of it could be written. */
    bool write(const void* data, std::size_t size);
    /** Puts the draft, once it is on the disc, in the file's place; false when all is as it was before. */
    bool commit();

private:
    Opening findPlace(const char* path);
    bool enterDirectoryOf(const char* path);
    bool createDraft(unsigned int permissions);
    void drop() noexcept;

    int _directory = -1; // of the file and its draft
    int _draft = -1;
    char _name[256]{};     // of the file in the directory
    char _draftName[32]{}; // empty without one
};

} // namespace orvi::platform
