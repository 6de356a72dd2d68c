#include <orvi/core/Console.h>

#include <orvi/core/Encoding.h>
#include <orvi/core/String.h>

#include "platform/base/CodePage.h"
#include "platform/base/Format.h"
#include "platform/diagnostics/ConsoleDevice.h"

#include <algorithm>
#include <atomic>
#include <cstdarg>
#include <vector>

namespace orvi {

namespace {

using platform::ConsoleDevice;

constexpr unsigned short normalAttribute = 7;
std::atomic<unsigned short> g_attribute = normalAttribute;

/** Writes a text of at most `capacity` characters without the heap; false, with nothing written, for a longer
    one. A function of its own, so that only those who need the large buffers pay for them. */
template <std::size_t capacity>
[[gnu::noinline]] bool outputFromStack(const wchar_t* format, std::va_list arguments)
{
    constexpr std::size_t maxBytesPerUnit = 3;
    wchar_t text[capacity];
    const std::size_t length = platform::formatText(text, capacity, format, arguments);
    if (length > capacity)
        return false;
    const auto units = static_cast<std::size_t>(std::find(text, text + length, L'\0') - text);
    char bytes[capacity * maxBytesPerUnit];
    const auto size = platform::wideToCodePage(platform::utf8CodePage, text, units, bytes, sizeof bytes);
    ConsoleDevice::write(bytes, static_cast<std::size_t>(size));
    return true;
}

void writeText(const String_T<char>& text)
{
    ConsoleDevice::write(text, static_cast<std::size_t>(text.getBufferLength() - 1));
}

void outputFromHeap(const wchar_t* format, std::va_list arguments)
{
    String text;
    text.vprintf(format, arguments);
    writeText(StringHelper::wideToUtf8(text));
}

/** ANSI colours have red in bit 0 and blue in bit 2, and their bright ones 60 further on. */
int colourCode(unsigned int colour, int firstCode)
{
    const int code = firstCode + static_cast<int>((colour & 1) << 2 | (colour & 2) | (colour & 4) >> 2);
    return (colour & 8) != 0 ? code + 60 : code;
}

String_T<char> colourSequence(unsigned int attribute)
{
    const unsigned int text = attribute & 15;
    const unsigned int background = attribute >> 4 & 15;
    String_T<char> sequence("\x1b[0m");
    if (background != 0)
        sequence.format("\x1b[0;%d;%dm", colourCode(text, 30), colourCode(background, 40));
    else if (text != normalAttribute) // on the background that the user likes
        sequence.format("\x1b[0;%dm", colourCode(text, 30));
    return sequence;
}

} // namespace

bool Console::alloc() { return ConsoleDevice::attach(); }

void Console::free() { ConsoleDevice::detach(); }

void Console::output(const wchar_t* format, ...)
{
    std::va_list arguments;
    va_start(arguments, format);
    if (!outputFromStack<1024>(format, arguments) && !outputFromStack<32768>(format, arguments))
        outputFromHeap(format, arguments);
    va_end(arguments);
}

bool Console::setTitle(const wchar_t* title)
{
    if (!ConsoleDevice::isTerminal())
        return true;
    // A control character would end the sequence, and what follows it would be taken as commands.
    std::vector<wchar_t> clean;
    for (const wchar_t* p = title != nullptr ? title : L""; *p != 0; ++p) {
        const bool isControl = *p < 0x20 || (*p >= 0x7f && *p < 0xa0);
        if (!isControl)
            clean.push_back(*p);
    }
    clean.push_back(0);
    writeText(String_T<char>("\x1b]0;") + StringHelper::wideToUtf8(clean.data()) + "\a");
    return true;
}

bool Console::setTextAttribute(unsigned int attribute)
{
    if (!ConsoleDevice::isOpen())
        return false;
    if (ConsoleDevice::isTerminal()) {
        g_attribute = static_cast<unsigned short>(attribute);
        writeText(colourSequence(attribute));
    }
    return true;
}

bool Console::setCursorPosition(int x, int y)
{
    const auto column = static_cast<short>(x);
    const auto row = static_cast<short>(y);
    if (column < 0 || row < 0 || !ConsoleDevice::isTerminal())
        return false;
    String_T<char> sequence;
    sequence.format("\x1b[%d;%dH", row + 1, column + 1);
    writeText(sequence);
    return true;
}

bool Console::getScreenBufferInfo(ConsoleScreenBufferInfo& info)
{
    ConsoleScreenBufferInfo current;
    if (!ConsoleDevice::getSize(current.sizeX, current.sizeY))
        return false;
    current.attributes = g_attribute;
    info = current;
    return true;
}

} // namespace orvi
