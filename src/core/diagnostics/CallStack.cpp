#include <orvi/core/CallStack.h>

#include <orvi/core/Encoding.h>
#include <orvi/core/Log.h>

#include "base/Immortal.h"
#include "platform/diagnostics/DebugModule.h"
#include "platform/diagnostics/ThreadInfo.h"

#include <algorithm>
#include <cstdio>
#include <memory>
#include <string_view>
#include <vector>

namespace orvi {

namespace {

constexpr std::size_t lineCapacity = 1024;

/** Whether the place lies in the capture itself: in this source file, whatever the case of its letters. */
bool isCaptureFrame(const char* file)
{
    static constexpr std::string_view ownFile = "callstack.cpp";
    const std::string_view path(file);
    const auto slash = path.rfind('/');
    const std::string_view name = path.substr(slash == std::string_view::npos ? 0 : slash + 1);
    return std::equal(name.begin(), name.end(), ownFile.begin(), ownFile.end(),
                      [](char c, char own) { return (c >= 'A' && c <= 'Z' ? c + ('a' - 'A') : c) == own; });
}

/** Gives a capture back that memory did not last for. */
struct Dropper {
    void operator()(CallStack* stack) const noexcept { stack->destroy(); }
};
using Capture = std::unique_ptr<CallStack, Dropper>;

} // namespace

CallStack::~CallStack()
{
    for (Block* block = _first.next; block != nullptr;) {
        Block* next = block->next;
        delete block;
        block = next;
    }
}

void CallStack::destroy() noexcept
{
    if (_references.fetch_sub(1) == 1)
        delete this;
}

void CallStack::push(unsigned long address)
{
    if (_top == blockSize) {
        _current->next = new Block;
        _current = _current->next;
        _top = 0;
    }
    _current->frames[_top++] = address;
    ++_count;
}

unsigned long CallStack::operator[](unsigned int index) const noexcept
{
    const Block* block = &_first;
    for (; index >= blockSize; index -= blockSize)
        block = block->next;
    return block->frames[index];
}

bool CallStack::operator==(const CallStack& other) const noexcept
{
    if (_count != other._count)
        return false;
    const Block* a = &_first;
    const Block* b = &other._first;
    for (unsigned int i = 0; i < _count; ++i) {
        if (i > 0 && i % blockSize == 0) {
            a = a->next;
            b = b->next;
        }
        if (a->frames[i % blockSize] != b->frames[i % blockSize])
            return false;
    }
    return true;
}

CallStack* CallStack::getCallStack()
{
    DebugHelper::getDebugHelper();
    constexpr std::size_t firstGuess = 256;
    std::vector<std::uintptr_t> frames(firstGuess);
    std::size_t found = platform::DebugModule::walk(frames.data(), frames.size());
    while (found == frames.size()) { // the stack's own end is the only limit
        frames.resize(frames.size() * 4);
        found = platform::DebugModule::walk(frames.data(), frames.size());
    }
    Capture stack(new CallStack);
    for (std::size_t i = 0; i < found; ++i)
        stack->push(frames[i]);
    return stack.release();
}

// Frames are read as plain memory within the bounds of the stack, which a sanitizer takes for a stray access.
__attribute__((noinline, no_sanitize("address", "thread"))) CallStack* CallStack::getCallStack_fast()
{
    Capture stack(new CallStack);
    const platform::StackBounds bounds = platform::currentStackBounds();
    constexpr std::size_t word = sizeof(std::uintptr_t);
    auto frame = reinterpret_cast<std::uintptr_t>(__builtin_frame_address(0));
    // A frame holds the caller's frame pointer and the return address. A stack grows down: the chain must
    // rise.
    while (frame >= bounds.lowest && frame + 2 * word <= bounds.highest && frame % word == 0) {
        const auto* words = reinterpret_cast<const std::uintptr_t*>(frame);
        const std::uintptr_t next = words[0];
        if (next <= frame || words[1] == 0)
            break;
        stack->push(words[1]);
        frame = next;
    }
    return stack.release();
}

void CallStack::dump(Callback& callback) const
{
    DebugHelper::getDebugHelper();
    callback.report("Call Stack:");
    platform::SourcePlace place;
    const Block* block = &_first;
    for (unsigned int i = 0; i < _count; ++i) {
        if (i > 0 && i % blockSize == 0)
            block = block->next;
        const unsigned long address = block->frames[i % blockSize];
        platform::DebugModule::findPlace(address, place);
        if (isCaptureFrame(place.file))
            continue;
        const char* function = place.function[0] != 0 ? place.function : "(Function name unavailable)";
        char line[lineCapacity];
        int size = 0; // of the whole text; what does not fit is cut
        if (place.file[0] != 0 && place.line > 0)
            size = std::snprintf(line, sizeof line, "    %s (%d): %s", place.file, place.line, function);
        else
            size = std::snprintf(line, sizeof line, "    0x%.8lX (File and line number not available): %s",
                                 address, function);
        if (size > 0)
            callback.report(line);
    }
}

void DumpCallStack_VS::report(const char* line) { std::fprintf(stderr, "\n%s", line); }

void DumpCallStack_Console::report(const char* line) { std::printf("\n%s", line); }

void DumpCallStack_Log::report(const char* line)
{
    const String text = StringConvert(line);
    Log::debug(L"%s", text.getBuffer());
}

DebugHelper::DebugHelper()
    : _loaded(platform::DebugModule::isLoaded())
{
    if (!_loaded) {
        std::printf("DebugHelper: Unable to load dbghelp.dll.");
        return;
    }
    for (std::size_t i = 0; i < std::size(platform::DebugModule::entryPointNames); ++i) {
        if (!platform::DebugModule::hasEntryPoint(i))
            std::printf(
                "DebugHelper: The procedure entry point %s could not be located in the dynamic link library "
                "dbghelp.dll.",
                platform::DebugModule::entryPointNames[i]);
    }
}

const DebugHelper& DebugHelper::getDebugHelper()
{
    alignas(
        DebugHelper) static unsigned char storage[sizeof(DebugHelper)]; // a late dump may still ask for it
    static const DebugHelper* helper = new (storage) DebugHelper;
    return *helper;
}

} // namespace orvi
