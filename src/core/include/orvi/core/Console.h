#pragma once
#include <orvi/core/Export.h>

namespace orvi {

/** What Console::getScreenBufferInfo tells; positions and sizes in characters. */
class ConsoleScreenBufferInfo {
public:
    int sizeX = 0; // 0 when the terminal does not know
    int sizeY = 0;
    int cursorX = 0; // always 0, see getScreenBufferInfo
    int cursorY = 0;
    unsigned short attributes = 0; // what Console::setTextAttribute set last
};

/** The process's text console: standard output. Text goes out as UTF-8, one write a call, so that the lines
    of two threads do not mix, and behind what stdio still holds back for it. Colour, title and cursor travel
    as ANSI escape sequences, which a terminal alone gets to see.

    Any thread may call any of these at any time. */
class ORVI_API Console {
public:
    Console() = delete;

    /** Opens the controlling terminal as standard input and output for a process whose standard output is
        closed or is no terminal; false when it is one already or there is none to open. */
    static bool alloc();
    /** Gives back what alloc opened: standard input and output are again what they were before. */
    static void free();

    /** Formats as String::format does and writes the whole text, up to its first NUL. Failures go unnoticed;
        a reader that has gone away does not raise SIGPIPE. A text of up to 32,768 characters needs no heap,
        but one above 1024 needs 160 KiB of stack. */
    static void output(const wchar_t* format, ...);

    /** Always true. Control characters are left out. */
    static bool setTitle(const wchar_t* title);
    /** Low 16 bits: bit 0 blue, 1 green, 2 red, 3 bright, for the text; bits 4 to 7 the same for the
        background. 7 is a terminal's normal look. False only when standard output is closed. */
    static bool setTextAttribute(unsigned int attribute);
    /** Column and row from 0, of which the low 16 bits count, as signed numbers; false without a terminal and
        for negative ones. Terminals take a position beyond the edge as the edge. */
    static bool setCursorPosition(int x, int y);
    /** False, with `info` unchanged, without a terminal. The cursor is given as 0/0: to ask a terminal where
        it is means to read the answer from the keyboard's input, between what the user types. */
    static bool getScreenBufferInfo(ConsoleScreenBufferInfo& info);
};

} // namespace orvi
