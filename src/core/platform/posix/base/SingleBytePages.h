#pragma once

namespace orvi::platform {

/** The mapping table of a code page in which each character is one byte. It lies in the module: no page of these
    waits for memory, descriptors or a module of the system. */
struct SingleBytePage {
    int codePage;
    wchar_t upperUnits[128]; // by byte from 0x80 on, 0 for an undefined one; those below are ASCII
};

inline constexpr int singleBytePageCount = 19;

/** Where Windows has nothing else for a byte of 0x80 to 0x9F in one of its own pages, 874 and 1250 to 1258, it is the
    control character of the same number. No page has a character twice. */
extern const SingleBytePage singleBytePages[singleBytePageCount];

} // namespace orvi::platform
