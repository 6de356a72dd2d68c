#pragma once
#include <orvi/core/App.h>
#include <orvi/core/MemoryStream.h>

namespace orvi {

/** A word of the protocol that is sure to get out: its memory is taken before it is due, so that no client waits in vain
    for its greeting or for the end of its command. */
class AppWord {
public:
    /** Takes the memory, unless it is there; false when there is none. */
    bool reserve() noexcept;
    /** Tells the word and uses the reserve up. A pipe that does not take it does not disturb the box. */
    void tell(AppPipe& pipe, const char* word);

private:
    Unknown::Handle_T<MemoryStream> _room; // an empty stream with a page
};

} // namespace orvi
