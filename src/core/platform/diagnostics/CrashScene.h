#pragma once
#include <cstddef>
#include <cstdint>

namespace orvi::platform {

// What a report on a fault asks of the system. All of it may be called in a signal handler: no heap, no lock of ours, no
// buffer of the C library.

bool isDebuggerPresent();

/** The path of the program; 0 when it is not known. Ends with a NUL, cut where `size` ends. */
std::size_t readProgramPath(char* target, std::size_t size);
/** The program and its arguments, with blanks between. */
std::size_t readCommandLine(char* target, std::size_t size);

struct SystemVersion {
    int major;
    int minor;
    int build;
    char text[256]; // the system's name, its release, the processor
};
SystemVersion systemVersion();

/** How far local time is from UTC now, in seconds east. Asks the C library in a child, since that takes locks and memory
    and would settle the zone that getTimeBias tells. False when no answer came in time. */
bool findSecondsEast(long& seconds, unsigned int mostMillis);

struct RegisterValues {
    std::uint64_t ax, bx, cx, dx, si, di, ip, sp, bp, flags;
    unsigned int cs, ss, ds, es, fs, gs;
};
RegisterValues registerValues(const void* registers);
/** Stores the addresses on the stack as far as frame pointers lead, that of the registers first; gives their number. */
std::size_t walkFramePointers(const void* registers, std::uintptr_t* addresses, std::size_t capacity);
/** Calls `use` with the registers of this function itself. */
void withRegisters(void (*use)(const void* registers));

// Where no descriptor is left, opening takes one of FileReserve.h.

inline constexpr int noFile = -1;
/** Makes a file that only the user can read; noFile when it exists already, or cannot be made. */
int createFile(const char* path);
/** Opens an existing file, emptied. */
int openFile(const char* path);
bool writeFile(int file, const char* data, std::size_t size);
void closeFile(int file);
/** Whether the file, which openFile gave, ends with a line that is not complete. */
bool endsInLine(int file);

/** Runs `work` while the signals that a failing write sends are kept from the thread. */
void withoutWriteSignals(void (*work)(void*), void* argument);

void writeStandardError(const char* data, std::size_t size);

/** Runs `work` in a child of the process, on a copy of everything, and waits for its end: what goes wrong there, or hangs,
    does no harm here. Of the program's files the child has the standard streams and `file`, which may be noFile. */
enum class ChildEnd {
    Done,
    Failed,    // or was not done in time
    NotStarted // the system has no process left
};
ChildEnd runInChild(void (*work)(void*), void* argument, int file, unsigned int mostMillis);

void sleepMillis(unsigned int millis);

} // namespace orvi::platform
