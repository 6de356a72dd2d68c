#include <orvi/core/FileMutex.h>

#include <orvi/core/Time.h>

#include "platform/files/ExclusiveFile.h"
#include "platform/files/FilePath.h"

#include <chrono>
#include <thread>

namespace orvi {

namespace {

constexpr std::chrono::milliseconds pollInterval{20};

} // namespace

Unknown::Handle_T<FileMutex> FileMutex::createInstance(const String& fileName)
{
    return new FileMutex(fileName);
}

FileMutex::FileMutex(const String& fileName)
    : _name(fileName)
{}

FileMutex::~FileMutex() = default;

bool FileMutex::lock(unsigned int timeoutMs)
{
    const unsigned int start = getTimeTick();
    if (isLocked())
        return true;
    _file.reset(); // what a fork has copied is not ours
    const String_T<char> path = platform::bytesFromPath(_name);
    for (;;) {
        _file = platform::ExclusiveFile::tryOpen(path);
        if (_file != nullptr)
            return true;
        if (timeoutMs != endless && getTimeTick() - start >= timeoutMs)
            return false;
        std::this_thread::sleep_for(pollInterval);
    }
}

void FileMutex::unlock() { _file.reset(); }

bool FileMutex::isLocked() const { return _file != nullptr && _file->isOwn(); }

} // namespace orvi
