#pragma once
#include <orvi/core/Export.h>
#include <orvi/core/String.h>

namespace orvi {

// Base64 with "+", "/" and "=" (RFC 4648, table 1), without line breaks. Any number of threads.

/** Empty for a size below 1. */
ORVI_API String base64_encode(const void* data, int size);
/** Encodes the text's UTF-8. */
ORVI_API String base64_encode(const String& text);

/** The number of bytes that a well-formed text stands for. The text is not checked. */
ORVI_API int base64_datasize(const String& text);

/** Decodes up to the first character outside the alphabet and gives the number of bytes, which is below
    base64_datasize when the text has such a character. 0 when the length is no multiple of 4. `data` has room
    for 3 bytes for every 4 characters: a text with too many "=" gives more than base64_datasize tells. */
ORVI_API int base64_decode(const String& text, void* data);
/** The same for a block of `capacity` bytes: bytes beyond it are counted and not written. */
ORVI_API int base64_decode(const String& text, void* data, int capacity);
/** Decodes to UTF-8 text. */
ORVI_API String base64_decode(const String& text);

} // namespace orvi
