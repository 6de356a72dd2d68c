#include "platform/diagnostics/DebugModule.h"

#include "platform/base/KeepLastError.h"
#include "platform/diagnostics/FaultGuard.h"

#include "debug/DebugApi.h"
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <mutex>
#include <string_view>

#if defined(__SANITIZE_THREAD__)
#define ORVI_THREAD_SANITIZER
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define ORVI_THREAD_SANITIZER
#endif
#endif

namespace orvi::platform {
namespace {

enum EntryPoint : std::size_t { Walk, Place, VisitStack, VisitModules, WriteDump, PrepareThread };

struct Binding {
    void* library;
    void* entryPoints[std::size(DebugModule::entryPointNames)];
};

constinit std::once_flag loadedOnce;
constinit Binding binding{};

char ownPath[PATH_MAX]; // of this library; empty when it is not known

// Ahead of whatever may ask for the module. A relative name counts from where the loader stood: the program may leave
// that place later.
[[gnu::constructor(101)]] void findOwnPath()
{
    Dl_info library;
    if (dladdr(&binding, &library) == 0 || library.dli_fname == nullptr)
        return;
    const std::size_t size = std::strlen(library.dli_fname);
    if (*library.dli_fname == '/' && size < sizeof ownPath)
        std::memcpy(ownPath, library.dli_fname, size + 1);
    else if (realpath(library.dli_fname, ownPath) == nullptr)
        *ownPath = 0;
}

// A namespace of its own gives the module a heap of its own: it works on when the program's heap is damaged,
// or locked by the very thread that asks. Seen to work under the address and thread sanitizers of both
// compilers (two C libraries in the maps, 4 threads at once, no report).
void* load(const char* path)
{
    constexpr int flags = RTLD_NOW | RTLD_LOCAL;
    if (void* library = dlmopen(LM_ID_NEWLM, path, flags))
        return library;
    return dlopen(path, flags); // static TLS is short: some 11 C libraries fit
}

// Only from beside this library: the loader searches for a name without a path wherever the environment says.
void bind()
{
    constexpr char fileName[] = "liborvi_debug.so";
    char path[PATH_MAX];
    const auto directory = std::string_view(ownPath).substr(0, std::string_view(ownPath).rfind('/') + 1);
    if (directory.empty() || directory.size() + sizeof fileName > sizeof path)
        return;
    std::memcpy(path, directory.data(), directory.size());
    std::memcpy(path + directory.size(), fileName, sizeof fileName);
    binding.library = load(path);
    if (binding.library == nullptr)
        return;
    for (std::size_t index = 0; index < std::size(binding.entryPoints); ++index)
        binding.entryPoints[index] = dlsym(binding.library, DebugModule::entryPointNames[index]);
}

const Binding& bound()
{
    std::call_once(loadedOnce, bind);
    return binding;
}

template <class Function>
Function entryPoint(std::size_t index)
{
    return reinterpret_cast<Function>(bound().entryPoints[index]);
}

} // namespace

bool DebugModule::isLoaded()
{
    const KeepLastError kept;
    return bound().library != nullptr;
}

bool DebugModule::hasEntryPoint(std::size_t index)
{
    const KeepLastError kept;
    return index < std::size(entryPointNames) && bound().entryPoints[index] != nullptr;
}

// Not inlined: its own frame is where the walk begins to count.
[[gnu::noinline]] std::size_t DebugModule::walk(std::uintptr_t* addresses, std::size_t capacity)
{
    const KeepLastError kept;
    const auto walkFrom = entryPoint<decltype(&orvi_debug_walk)>(Walk);
    return walkFrom == nullptr || !prepareThread()
               ? 0
               : walkFrom(__builtin_frame_address(0), addresses, capacity);
}

void DebugModule::findPlace(std::uintptr_t address, SourcePlace& place)
{
    const KeepLastError kept;
    OrviDebugPlace found{place.function, sizeof place.function, place.file, sizeof place.file, 0};
    place.function[0] = 0;
    place.file[0] = 0;
    const auto find = entryPoint<decltype(&orvi_debug_place)>(Place);
    if (find != nullptr && prepareThread())
        find(address, &found);
    place.line = found.line;
}

bool DebugModule::prepareThread()
{
    const KeepLastError kept;
    const auto prepare = entryPoint<decltype(&orvi_debug_prepare_thread)>(PrepareThread);
#ifndef ORVI_THREAD_SANITIZER // to which the C library's freeing of what this allocates is a race
    return prepare != nullptr && prepare(std::malloc, std::free) != 0;
#else
    return prepare != nullptr; // the module is loaded
#endif
}

bool DebugModule::canReport()
{
    return hasEntryPoint(VisitStack) && hasEntryPoint(VisitModules) && hasEntryPoint(WriteDump);
}

void DebugModule::visitStack(const void* registers, std::size_t maxFrames, StackVisitor& visitor)
{
    const auto visit = entryPoint<decltype(&orvi_debug_visit_stack)>(VisitStack);
    if (visit == nullptr)
        return;
    const OrviDebugStackVisitor calls{
        &visitor,
        [](void* target, const OrviDebugFrame* frame) {
            static_cast<StackVisitor*>(target)->frame(
                {frame->address, frame->function, frame->file, frame->line});
        },
        [](void* target, const char* name, const char* value) {
            static_cast<StackVisitor*>(target)->parameter(name, value);
        },
        [](void* target) { static_cast<StackVisitor*>(target)->parametersEnd(); },
        [](void* target, const char* name, const char* value) {
            static_cast<StackVisitor*>(target)->variable(name, value);
        }};
    visit(static_cast<const ucontext_t*>(registers), maxFrames, &calls);
}

void DebugModule::visitModules(void (*visit)(void* context, const LoadedModule& module), void* context)
{
    struct Target {
        void (*visit)(void* context, const LoadedModule& module);
        void* context;
    } target{visit, context};
    if (const auto list = entryPoint<decltype(&orvi_debug_visit_modules)>(VisitModules)) {
        list(
            [](void* receiver, const OrviDebugModule* module) {
                const auto& to = *static_cast<const Target*>(receiver);
                const unsigned int* version = module->version;
                to.visit(to.context, {module->path,
                                      module->base,
                                      module->size,
                                      {version[0], version[1], version[2], version[3]}});
            },
            &target);
    }
}

bool DebugModule::writeDump(int file, const Fault* fault)
{
    const auto write = entryPoint<decltype(&orvi_debug_write_dump)>(WriteDump);
    if (write == nullptr)
        return false;
    if (fault == nullptr)
        return write(file, nullptr) != 0;
    const OrviDebugFault cause{fault->signal, fault->signalCode, fault->address,
                               static_cast<const ucontext_t*>(fault->registers)};
    return write(file, &cause) != 0;
}

} // namespace orvi::platform
