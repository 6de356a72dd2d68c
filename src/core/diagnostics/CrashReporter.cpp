#include "CrashReporter.h"

#include <orvi/core/CrashReporter.h>

#include <orvi/core/Time.h>

#include "base/Immortal.h"
#include "platform/diagnostics/CrashScene.h"
#include "platform/diagnostics/DebugModule.h"
#include "platform/diagnostics/FileReserve.h"
#include "platform/diagnostics/ThreadInfo.h"

#include <algorithm>
#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstring>

namespace orvi {

namespace {

// This runs at the moment of the fault: the heap may be broken or locked, and so may everything of the C++ library. Of the
// system it uses CrashScene.h alone; names and values are found in a child, whose end is waited for no longer than this.
constexpr unsigned int mostMillisForText = 10000;
constexpr unsigned int mostMillisForReport = 3 * mostMillisForText;
constexpr std::size_t maxFrames = 200;

enum class State { Untouched, Reporting, Done };
constinit std::atomic<State> g_state = State::Untouched;
constinit std::atomic<unsigned long> g_reportingThread = 0;
char g_contact[128] = "the maker of this program";

/** The report while it is written. */
class TextFile {
public:
    void open(int file) noexcept { _file = file; }
    [[gnu::format(printf, 2, 3)]] void print(const char* format, ...)
    {
        if (sizeof _text - _size < longestPiece)
            flush();
        std::va_list arguments;
        va_start(arguments, format);
        const int size = std::vsnprintf(_text + _size, longestPiece, format, arguments);
        va_end(arguments);
        if (size > 0)
            _size += std::min(static_cast<std::size_t>(size), longestPiece - 1);
    }
    void flush()
    {
        platform::writeFile(_file, _text, _size);
        _size = 0;
    }

private:
    static constexpr std::size_t longestPiece = 4096;

    int _file = platform::noFile;
    std::size_t _size = 0;
    char _text[2 * longestPiece] = {};
};

constinit TextFile g_text; // not on the stack, which may be small

const char* exceptionName(unsigned long code)
{
    static constexpr struct {
        unsigned long code;
        const char* name;
    } rows[] = {
        {0, "NONE"}, // asked for
        {0xC0000005, "ACCESS_VIOLATION"},
        {0xC000008F, "FLT_INEXACT_RESULT"},
        {0x80000002, "DATATYPE_MISALIGNMENT"},
        {0xC0000090, "FLT_INVALID_OPERATION"},
        {0x80000003, "BREAKPOINT"},
        {0xC0000091, "FLT_OVERFLOW"},
        {0x80000004, "SINGLE_STEP"},
        {0xC0000092, "FLT_STACK_CHECK"},
        {0x80000001, "GUARD_PAGE"},
        {0xC0000093, "FLT_UNDERFLOW"},
        {0xC0000006, "IN_PAGE_ERROR"},
        {0xC0000094, "INT_DIVIDE_BY_ZERO"},
        {0xC0000008, "INVALID_HANDLE"},
        {0xC0000095, "INT_OVERFLOW"},
        {0xC000001D, "ILLEGAL_INSTRUCTION"},
        {0xC0000096, "PRIV_INSTRUCTION"},
        {0xC0000025, "NONCONTINUABLE_EXCEPTION"},
        {0xC00000FD, "STACK_OVERFLOW"},
        {0xC0000026, "INVALID_DISPOSITION"},
        {0xC000008E, "FLT_DIVIDE_BY_ZERO"},
        {0xC000008C, "ARRAY_BOUNDS_EXCEEDED"},
        {0xC000008D, "FLT_DENORMAL_OPERAND"},
    };
    for (const auto& row : rows) {
        if (row.code == code)
            return row.name;
    }
    return "UNKNOWN_ERROR";
}

void printProcess(TextFile& text, const platform::Fault& fault)
{
    static char commandLine[1024];
    platform::readCommandLine(commandLine, sizeof commandLine);
    const platform::SystemVersion version = platform::systemVersion();
    const platform::RegisterValues values = platform::registerValues(fault.registers);
    text.print("\nProcess info:\n");
    text.print("Cmd line: %.512s\n", commandLine);
    text.print("Platform: Windows OS version %d.%d build %d %s\n\n", version.major, version.minor,
               version.build, version.text);
    text.print("Exception: %s\n\n", exceptionName(fault.code));
    text.print("Registers:\n");
    text.print("eax=%08lx ebx=%08lx ecx=%08lx edx=%08lx esi=%08lx edi=%08lx\n", values.ax, values.bx,
               values.cx, values.dx, values.si, values.di);
    text.print("eip=%08lx esp=%08lx ebp=%08lx efl=%08lx\n", values.ip, values.sp, values.bp, values.flags);
    text.print("cd=%04x  ss=%04x  ds=%04x  es=%04x  fs=%04x  gs=%04x\n", values.cs, values.ss, values.ds,
               values.es, values.fs, values.gs);
}

/** Finds the frames that a throw has put on the stack of its thrower. */
class ThrowFinder final : public platform::StackVisitor {
public:
    void frame(const platform::StackFrame& frame) override
    {
        ++_count;
        const auto is = [&](const char* name) { return std::strcmp(frame.function, name) == 0; };
        if (frame.function != nullptr &&
            (is("__cxa_throw") || is("__cxa_rethrow") || is("std::rethrow_exception")))
            _throwFrames = _count;
    }
    /** How many frames lie in front of the thrower's; 0 for a stack without a throw. */
    int throwFrames() const { return _throwFrames; }

private:
    int _count = 0;
    int _throwFrames = 0;
};

class StackText final : public platform::StackVisitor {
public:
    StackText(TextFile& text, int skippedFrames)
        : _text(text)
        , _skippedFrames(skippedFrames)
    {}

    void frame(const platform::StackFrame& frame) override
    {
        if (_skippedFrames > 0) {
            --_skippedFrames;
            _isSkipping = true;
            return;
        }
        _isSkipping = false;
        _text.flush(); // what stands stays, whatever the next frame does
        _frame = frame;
        _hasParameter = false;
        ++_number;
        if (frame.function != nullptr) {
            _text.print("#%d  0x%08lx in %.200s (", _number, frame.address, frame.function);
            return;
        }
        _text.print("#%d  0x%08lx in (unknown function)", _number, frame.address);
        printPlace();
    }
    void parameter(const char* name, const char* value) override
    {
        if (_isSkipping)
            return;
        _text.print("%s%s=%s", _hasParameter ? ", " : "", name, value);
        _hasParameter = true;
    }
    void parametersEnd() override
    {
        if (_isSkipping || _frame.function == nullptr)
            return;
        _text.print(")");
        printPlace();
    }
    void variable(const char* name, const char* value) override
    {
        if (!_isSkipping)
            _text.print("        %s = %s\n", name, value);
    }

private:
    void printPlace()
    {
        if (_frame.file != nullptr)
            _text.print(" at %s:%d\n", _frame.file, _frame.line);
        else
            _text.print("\n");
    }

    TextFile& _text;
    int _skippedFrames;
    int _number = 0;
    bool _isSkipping = false;
    bool _hasParameter = false;
    platform::StackFrame _frame{};
};

struct TextWork {
    int file;
    const platform::Fault* fault;
    bool isOnCaller; // the first frame is ours
};

void writeStack(void* argument)
{
    const auto& work = *static_cast<const TextWork*>(argument);
    TextFile& text = g_text;
    text.open(work.file);
    int skippedFrames = work.isOnCaller ? 1 : 0;
    if (work.fault->code == platform::thrownObject) {
        ThrowFinder finder;
        platform::DebugModule::visitStack(work.fault->registers, maxFrames, finder);
        skippedFrames = finder.throwFrames();
    }
    StackText stack(text, skippedFrames);
    platform::DebugModule::visitStack(work.fault->registers, maxFrames, stack);
    text.flush();
}

void writeModules(void* argument)
{
    g_text.open(*static_cast<const int*>(argument));
    platform::DebugModule::visitModules(
        [](void*, const platform::LoadedModule& module) {
            g_text.print("0x%08lx  %s (%u.%u.%u.%u, %zu bytes)\n", module.base, module.path,
                         module.version[0], module.version[1], module.version[2], module.version[3],
                         module.size);
        },
        nullptr);
    g_text.flush();
}

/** What can always be had, when the child did not get to the end of the stack. */
void writeAddresses(int file, const platform::Fault& fault)
{
    static std::uintptr_t addresses[maxFrames];
    const std::size_t count = platform::walkFramePointers(fault.registers, addresses, maxFrames);
    g_text.open(file);
    if (platform::endsInLine(file))
        g_text.print("\n");
    for (std::size_t i = 0; i < count; ++i)
        g_text.print("#%zu  0x%08lx in (unknown function)\n", i + 1, addresses[i]);
    g_text.flush();
}

/** A name beside the program that is free, and now taken by an empty file. */
class ReportFile {
public:
    ReportFile(const char* extension, long secondsEast) noexcept
    {
        static char program[pathSize];
        platform::readProgramPath(program, sizeof program);
        char* slash = std::strrchr(program, '/');
        *(slash != nullptr ? slash + 1 : program) = 0;
        constexpr int tries = 3;
        for (int i = 0; i < tries && !exists(); ++i)
            reserve(program, extension, secondsEast);
    }

    bool exists() const { return path[0] != 0; }

    static constexpr std::size_t pathSize = 4096;
    char path[pathSize] = {};

private:
    void reserve(const char* directory, const char* extension, long secondsEast)
    {
        const std::tm now = gmtime(time(nullptr) + secondsEast);
        const int size = std::snprintf(path, sizeof path, "%s%s%04d-%02d-%02d %02d.%02d.%02d.%s", directory,
                                       "crash@", now.tm_year, now.tm_mon, now.tm_mday, now.tm_hour,
                                       now.tm_min, now.tm_sec, extension);
        const int file =
            size > 0 && size < static_cast<int>(sizeof path) ? platform::createFile(path) : platform::noFile;
        if (file == platform::noFile)
            path[0] = 0;
        else
            platform::closeFile(file);
    }
};

/** The text, and the dump with the list of modules that belongs to it. */
void writeReport(const char* reportPath, const char* dumpPath, const platform::Fault& fault, bool isOnCaller)
{
    int report = platform::openFile(reportPath);
    if (report == platform::noFile)
        return;
    g_text.open(report);
    printProcess(g_text, fault);
    g_text.print("\nStacktrace:\n");
    g_text.flush();
    TextWork work{report, &fault, isOnCaller};
    if (platform::runInChild(writeStack, &work, report, mostMillisForText) != platform::ChildEnd::Done)
        writeAddresses(report, fault);
    static constexpr char heading[] = "\n\nLoaded modules:\n";
    platform::writeFile(report, heading, std::strlen(heading));
    const int dump = platform::openFile(dumpPath);
    if (dump != platform::noFile) {
        while (
            platform::releaseReservedFile()) { // without a child, the writer reads files of the system itself
        }
        platform::DebugModule::writeDump(dump, isOnCaller ? nullptr : &fault);
        platform::closeFile(dump);
        if (platform::runInChild(writeModules, &report, report, mostMillisForText) ==
            platform::ChildEnd::NotStarted)
            writeModules(&report);
    }
    platform::closeFile(report);
}

void tellUser(const char* reportPath, const char* dumpPath)
{
    static char text[2 * ReportFile::pathSize + 1024];
    const int size = std::snprintf(text, sizeof text,
                                   "This application has halted due to an unexpected error.\nA crash report "
                                   "and minidump file were saved to "
                                   "disk, you can find them here:\n%s\n%s\nPlease send the log file to %s to "
                                   "help us analyse\nand solve this "
                                   "problem.\n\nNOTE: The crash report and minidump files can contain some "
                                   "sensitive information\n(filenames, "
                                   "partial file content, usernames and passwords etc.)\n",
                                   reportPath, dumpPath, g_contact);
    if (size > 0)
        platform::writeStandardError(text, std::min(static_cast<std::size_t>(size), sizeof text - 1));
}

struct ReportWork {
    const platform::Fault& fault;
    bool isOnCaller;
};

void makeReport(void* argument)
{
    const auto& work = *static_cast<const ReportWork*>(argument);
    constexpr unsigned int mostMillisForZone = 500;
    long secondsEast = -getTimeBias(); // without summer time
    platform::findSecondsEast(secondsEast, mostMillisForZone);
    static ReportFile dump("dmp", secondsEast); // not on the stack, which may be small
    if (!dump.exists())
        return;
    static ReportFile text("log", secondsEast);
    if (!text.exists() || !platform::DebugModule::canReport())
        return;
    writeReport(text.path, dump.path, work.fault, work.isOnCaller);
    tellUser(text.path, dump.path);
}

void report(const platform::Fault& fault, bool isOnCaller)
{
    ReportWork work{fault, isOnCaller};
    platform::withoutWriteSignals(makeReport, &work);
}

/** Another thread has a fault while the report is written. Its fault may end the process: not before the report is there. */
void waitForReport()
{
    if (g_reportingThread == platform::currentThreadId())
        return;
    constexpr unsigned int pauseMillis = 5;
    for (unsigned int waited = 0; g_state == State::Reporting && waited < mostMillisForReport;
         waited += pauseMillis)
        platform::sleepMillis(pauseMillis);
}

bool filter(const platform::Fault& fault) { return crash_exception_filter(&fault) != 0; }

} // namespace

long crash_exception_filter(const platform::Fault* fault)
{
    State state = State::Untouched;
    if (!g_state.compare_exchange_strong(state, State::Reporting)) {
        waitForReport();
        return 1;
    }
    g_reportingThread = platform::currentThreadId();
    if (platform::isDebuggerPresent()) {
        g_state = State::Untouched;
        return 0;
    }
    if (fault != nullptr)
        report(*fault, false);
    else
        platform::withRegisters([](const void* registers) { report({0, 0, 0, 0, registers}, true); });
    g_state = State::Done;
    return 1;
}

bool prepareCrashReports() noexcept
{
    platform::reserveFiles();
    platform::guardFaults(filter);
    return platform::DebugModule::prepareThread();
}

void handled_exception_filter(const char* contact)
{
    static Immortal<platform::FaultStack> stack; // the calling thread's, to the end of the process
    static_cast<void>(stack);
    if (contact != nullptr)
        std::snprintf(g_contact, sizeof g_contact, "%s", contact);
    prepareCrashReports();
    platform::filterUnguarded();
}

CrashReportScope::CrashReportScope() noexcept
    : _faultStack(platform::FaultStack::provide())
    , _isReady(prepareCrashReports() && platform::FaultStack::isThere())
{}

CrashReportScope::~CrashReportScope() { platform::FaultStack::remove(_faultStack); }

} // namespace orvi
