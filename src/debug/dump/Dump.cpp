#include "Dump.h"

#include "DumpContext.h"
#include "DumpFile.h"
#include "DumpMemory.h"
#include "DumpModules.h"
#include "DumpSystem.h"
#include "StoppedThreads.h"
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <span>
#include <string_view>

namespace orvi::debug {
namespace {

using minidump::Context;
using minidump::StreamType;

constexpr std::size_t maxThreads = 4096;

// Not for the small stack of a signal handler. What is not used of it takes no memory.
struct Workspace {
    StoppedThreads stopped;
    DumpMemory memory;
    Context faultContext;
    minidump::Thread threads[maxThreads];
    minidump::ThreadName names[maxThreads];
    std::size_t threadCount;
};
constinit Workspace work{};

minidump::ThreadName addName(DumpFile& dump, pid_t thread)
{
    char name[32];
    ProcFile file(thread, "comm");
    std::string_view text(name, file.read(name));
    if (text.ends_with('\n'))
        text.remove_suffix(1);
    return {static_cast<std::uint32_t>(thread), dump.addText(text)};
}

minidump::Location addThread(DumpFile& dump, pid_t id, const Context& context, std::size_t stackLimit)
{
    minidump::Thread record{};
    record.id = static_cast<std::uint32_t>(id);
    record.context = dump.add(context);
    record.stack = work.memory.addStack(dump, context.rsp, stackLimit);
    work.names[work.threadCount] = addName(dump, id);
    work.threads[work.threadCount++] = record;
    return record.context;
}

void addOtherThreads(DumpFile& dump)
{
    constexpr std::size_t stackLimit = 256 << 10;
    for (const StoppedThreads::Thread& thread : work.stopped.threads()) {
        user_regs_struct general;
        user_fpregs_struct floatingPoint;
        if (work.threadCount == maxThreads || !thread.readRegisters(general, floatingPoint))
            continue;
        Context context;
        toDumpContext(general, floatingPoint, context);
        addThread(dump, thread.id, context, stackLimit);
    }
}

void addException(DumpFile& dump, const DumpRequest& request, minidump::Location context)
{
    minidump::Exception exception{};
    exception.threadId = static_cast<std::uint32_t>(request.thread);
    exception.code = static_cast<std::uint32_t>(request.fault.signal);
    exception.flags = static_cast<std::uint32_t>(request.fault.code);
    exception.address = request.fault.address;
    exception.context = context; // readers prefer it to the thread's own
    dump.addStream(StreamType::Exception, dump.add(exception));
}

void addPointedTo(DumpFile& dump, const Context& context, std::uintptr_t faultAddress)
{
    const std::uintptr_t pointers[] = {context.rip, context.rax, context.rbx, context.rcx, context.rdx,
                                       context.rsi, context.rdi, context.rbp, context.r8,  context.r9,
                                       context.r10, context.r11, context.r12, context.r13, context.r14,
                                       context.r15, faultAddress};
    for (const std::uintptr_t pointer : pointers)
        work.memory.addAround(dump, pointer);
}

} // namespace

bool writeDump(const DumpRequest& request, DumpThreads which)
{
    constexpr std::size_t faultedStackLimit = 16 << 20; // a full stack of the usual size, up to its beginning
    if (which == DumpThreads::All)
        work.stopped.stopOthers(request.thread);
    const ProcFile memory(request.thread, "mem");
    if (!work.memory.begin(request.thread, memory))
        return false;

    DumpFile dump(request.file);
    toDumpContext(*request.fault.registers, work.faultContext);
    work.threadCount = 0;
    const minidump::Location context = addThread(dump, request.thread, work.faultContext, faultedStackLimit);
    if (request.fault.signal != 0)
        addException(dump, request, context);
    if (which == DumpThreads::All)
        addOtherThreads(dump);
    addPointedTo(dump, work.faultContext, request.fault.address);
    work.memory.addList(dump);
    dump.addList(StreamType::ThreadList, std::span<const minidump::Thread>(work.threads, work.threadCount));
    dump.addList(StreamType::ThreadNames,
                 std::span<const minidump::ThreadName>(work.names, work.threadCount));
    addModules(dump, request.thread);
    addSystem(dump, request.process, request.thread);
    return dump.finish();
}

} // namespace orvi::debug
