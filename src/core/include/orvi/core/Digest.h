#pragma once
#include <orvi/core/Buffer.h>
#include <orvi/core/Export.h>
#include <orvi/core/String.h>

#include <cstdint>

namespace orvi {

/** A running MD5 (RFC 1321). For checks against accidents and for names, never against an attacker. */
struct MD5Context {
    std::uint32_t state[4];
    std::uint32_t count[2]; // bits taken so far, low word first
    unsigned char buffer[64];
};

/** A digest: a Buffer that has 16 bytes when it is valid, and compares and streams as one. */
class ORVI_API MD5Checksum : public Buffer {
public:
    MD5Checksum() noexcept = default;

    /** 32 lower-case digits; all zero when there is no digest. */
    String convertToString() const;
    /** Takes 32 digits of either case; false, and the checksum is empty, for any other text. */
    bool convertFromString(const String& text);
};

ORVI_API void MD5Init(MD5Context* context);
ORVI_API void MD5Update(MD5Context* context, const void* data, unsigned int size);
/** Ends the digest; the context needs MD5Init before its next use. */
ORVI_API void MD5Final(unsigned char digest[16], MD5Context* context);
/** The same. Without memory the checksum is empty and the context goes on. */
ORVI_API void MD5Final(MD5Checksum* checksum, MD5Context* context);
/** Takes one whole block into `state`. */
ORVI_API void MD5Transform(unsigned int state[4], const unsigned char block[64]);

} // namespace orvi
