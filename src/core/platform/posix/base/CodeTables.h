#pragma once
#include <cstdint>

namespace orvi::platform {

/** A code page in which each character is one byte. All pages extend ASCII. */
struct SingleByteTables {
    wchar_t units[256];        // "?" for an undefined byte
    std::uint8_t codes[65536]; // by unit; 0 for what the page lacks
};

/** A code page with characters of one byte and of two. */
struct DoubleByteTables {
    static constexpr int maxLeads = 126; // 0x81 to 0xFE

    std::uint8_t rows[256];           // by first byte: the row of its pairs in `units`, 0 for a single byte
    wchar_t units[1 + maxLeads][256]; // row 0 by single byte, the others by second byte; "?" if undefined
    std::uint16_t codes[65536]; // by unit: the byte, or first and second byte; 0 for what the page lacks
};

/** The tables of a page, made on the first question. Null for a page of another kind, or one that is not
    known. They stay for the process's life. Any number of threads.

    Those of a single-byte page come from constants and are always there. Those of a double-byte page come from iconv,
    which needs memory and descriptors: null without, and a later question tries again. */
const SingleByteTables* singleByteTables(int codePage);
const DoubleByteTables* doubleByteTables(int codePage);

/** Tells a page whose tables cannot be had now from one that is not known. */
bool isDoubleBytePage(int codePage);

} // namespace orvi::platform
