#include "AppWord.h"

#include <orvi/core/Varint.h>

#include "memory/StreamWait.h"

#include <cstring>
#include <new>

namespace orvi {

bool AppWord::reserve() noexcept
{
    try {
        if (_room.isNull()) {
            _room = MemoryStream::createInstance();
            StreamAccess::setQuiet(*_room);
        }
    } catch (const std::bad_alloc&) {
        return false;
    }
    char byte = 0; // a stream that has been read to its end keeps its page
    return _room->write(&byte, 1) == 1 && _room->read(&byte, 1) == 1;
}

void AppWord::tell(AppPipe& pipe, const char* word)
{
    if (!reserve()) // a pipe has been added twice, and this word told before
        return;
    const auto size = static_cast<int>(std::strlen(word));
    OutputStream room(_room);
    room << Varint(size);
    room.write(word, size);
    const platform::WakeLater later;
    const MutexGuard guard(*pipe._outputMutex);
    pipe.send(*_room);
}

} // namespace orvi
