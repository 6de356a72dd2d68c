#pragma once
#include <orvi/core/Export.h>
#include <orvi/core/Unknown.h>

#include <memory>

namespace orvi {

namespace platform {
class ExclusiveFile;
}

/** A lock between processes, and between the objects of one process, on a named file.

    The file exists only while the lock is held. One that a dead process left behind blocks nobody: the system
    lets go of a lock with its process. One object is for one thread at a time.

    The lock belongs to the process that took it. A copy of the process made by fork does not hold it, but
    keeps it from others until it ends, starts another program, or unlocks or destroys the object. */
class ORVI_API FileMutex : public Unknown {
public:
    static constexpr unsigned int endless = 0xFFFFFFFF;

    /** Keeps the name and touches no file. */
    static Unknown::Handle_T<FileMutex> createInstance(const String& fileName);

    /** Takes the lock, looking every 20 milliseconds, and gives true; also when this object holds it already,
        which does not count. False when `timeoutMs` milliseconds ran out; 0 looks once, 0xFFFFFFFF is no
        limit. A file that cannot be opened for any reason, a bad path or a directory included, counts as held
        by somebody else: think of that before waiting without a limit. */
    bool lock(unsigned int timeoutMs);
    /** Removes the file and gives the lock back; the destructor does the same. */
    void unlock();
    bool isLocked() const;

protected:
    explicit FileMutex(const String& fileName);
    ~FileMutex() override;

private:
    const String _name;
    std::unique_ptr<platform::ExclusiveFile> _file; // null while the lock is not held
};

} // namespace orvi
