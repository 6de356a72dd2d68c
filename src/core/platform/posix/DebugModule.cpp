#include "../DebugModule.h"

#include "../FaultGuard.h"

#include "../../../debug/DebugApi.h"
#include <cerrno>
#include <dlfcn.h>
#include <mutex>
#include <string>
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

constexpr char moduleFileName[] = "liborvi_debug.so";

enum EntryPoint : std::size_t { Walk, Place, VisitStack, VisitModules, WriteDump, PrepareThread };

struct Binding {
    void* library;
    void* entryPoints[std::size(DebugModule::entryPointNames)];
};

constinit std::once_flag loadedOnce;
constinit Binding binding{};

// Where this library lies, with the slash at the end; empty when the loader found it without a path.
std::string ownDirectory()
{
    Dl_info library;
    if (dladdr(&binding, &library) == 0 || library.dli_fname == nullptr)
        return {};
    const std::string_view path(library.dli_fname);
    return std::string(path.substr(0, path.rfind('/') + 1));
}

// A namespace of its own gives the module a heap of its own: it works on when the program's heap is damaged,
// or locked by the very thread that asks. Seen to work under the address and thread sanitizers of both
// compilers (two C libraries in the maps, 4 threads at once, no report).
void* load(const std::string& path)
{
    constexpr int flags = RTLD_NOW | RTLD_LOCAL;
    if (void* library = dlmopen(LM_ID_NEWLM, path.c_str(), flags))
        return library;
    return dlopen(path.c_str(), flags); // static TLS is short: some 11 C libraries fit
}

void bind()
{
    binding.library = load(ownDirectory() + moduleFileName);
    if (binding.library == nullptr)
        binding.library = load(moduleFileName);
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

/** Looking at the stack changes nothing: the caller may be on its way to report errno. */
class KeptErrno {
public:
    KeptErrno() = default;
    KeptErrno(const KeptErrno&) = delete;
    KeptErrno& operator=(const KeptErrno&) = delete;
    ~KeptErrno() { errno = _value; }

private:
    int _value = errno;
};

} // namespace

bool DebugModule::isLoaded()
{
    const KeptErrno kept;
    return bound().library != nullptr;
}

bool DebugModule::hasEntryPoint(std::size_t index)
{
    const KeptErrno kept;
    return index < std::size(entryPointNames) && bound().entryPoints[index] != nullptr;
}

// Not inlined: its own frame is where the walk begins to count.
[[gnu::noinline]] std::size_t DebugModule::walk(std::uintptr_t* addresses, std::size_t capacity)
{
    const KeptErrno kept;
    const auto walkFrom = entryPoint<decltype(&orvi_debug_walk)>(Walk);
    return walkFrom == nullptr ? 0 : walkFrom(__builtin_frame_address(0), addresses, capacity);
}

SourcePlace DebugModule::place(std::uintptr_t address)
{
    const KeptErrno kept;
    const auto find = entryPoint<decltype(&orvi_debug_place)>(Place);
    if (find == nullptr)
        return {};
    OrviDebugPlace place;
    find(address, &place);
    return {place.function, place.file, place.line};
}

void DebugModule::prepareThread()
{
    const KeptErrno kept;
    const auto prepare = entryPoint<decltype(&orvi_debug_prepare_thread)>(PrepareThread);
#ifndef ORVI_THREAD_SANITIZER // to which the C library's freeing of what this allocates is a race
    if (prepare != nullptr)
        prepare();
#else
    static_cast<void>(prepare); // the module is loaded
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
