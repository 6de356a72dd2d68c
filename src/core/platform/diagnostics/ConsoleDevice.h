#pragma once
#include <cstddef>

namespace orvi::platform {

/** Standard output and the terminal behind it. Any number of threads. */
class ConsoleDevice {
public:
    ConsoleDevice() = delete;

    static bool isOpen();
    static bool isTerminal();

    /** Hands the bytes to standard output, in one piece if it takes them so, after what stdio has kept back.
        What cannot be written is dropped. */
    static void write(const char* bytes, std::size_t size);

    /** The terminal's size in characters, 0 by 0 when it does not know; false without a terminal. */
    static bool getSize(int& columns, int& rows);

    /** Makes the controlling terminal standard input and output; false when that cannot be, or is so
        already. */
    static bool attach();
    /** Undoes attach; nothing without one. */
    static void detach();
};

} // namespace orvi::platform
