#pragma once
#include <orvi/core/Export.h>
#include <orvi/core/Stream.h>

namespace orvi {

/** A stream with a size and a position: the seekable kind. Sizes and positions are counted in bytes. */
class ORVI_API Archive : public IO {
public:
    /** All bytes, read or not; negative on failure. */
    virtual int getArchiveSize() const = 0;
    /** The offset of the next byte to read or write; negative on failure. */
    virtual int getPosition() const = 0;
    /** Moves there, maybe behind the end; gives the position reached, negative on failure. */
    virtual int setPosition(int position) = 0;
};

} // namespace orvi
