#include <orvi/core/Arguments.h>

#include "ArgumentTable.h"
#include "WholeTexts.h"
#include "WideText.h"

#include <algorithm>
#include <cstdlib>
#include <limits>

namespace orvi {

namespace {

bool isBlank(wchar_t ch) { return ch == L' ' || ch == L'\t'; }

const wchar_t* skipBlanks(const wchar_t* p)
{
    while (isBlank(*p))
        ++p;
    return p;
}

/** Takes a command line apart, into tables if there are any, and counts either way. */
class ArgumentSplitter {
public:
    ArgumentSplitter(wchar_t** argv, wchar_t* args)
        : _argv(argv)
        , _args(args)
    {}

    void split(const wchar_t* line)
    {
        line = takeProgramName(line);
        for (line = skipBlanks(line); *line != 0; line = skipBlanks(line))
            line = takeArgument(line);
        if (_argv != nullptr)
            _argv[_entries] = nullptr;
        ++_entries;
    }

    std::size_t entries() const { return _entries; }
    std::size_t characters() const { return _characters; }

private:
    const wchar_t* takeProgramName(const wchar_t* p)
    {
        begin();
        for (bool quoted = false; *p != 0 && (quoted || !isBlank(*p)); ++p) {
            if (*p == L'"')
                quoted = !quoted;
            else
                put(*p);
        }
        put(0);
        return p;
    }

    const wchar_t* takeArgument(const wchar_t* p)
    {
        begin();
        for (bool quoted = false;; ++p) {
            std::size_t backslashes = 0;
            for (; *p == L'\\'; ++p)
                ++backslashes;
            bool isMark = false;
            if (*p == L'"') {
                if (backslashes % 2 == 0) {
                    isMark = !quoted || p[1] != L'"';
                    if (!isMark)
                        ++p; // of a doubled quote the second is copied
                    quoted = !quoted;
                }
                backslashes /= 2;
            }
            for (; backslashes > 0; --backslashes)
                put(L'\\');
            if (*p == 0 || (!quoted && isBlank(*p)))
                break;
            if (!isMark)
                put(*p);
        }
        put(0);
        return p;
    }

    void begin()
    {
        if (_argv != nullptr)
            _argv[_entries] = _args != nullptr ? _args + _characters : nullptr;
        ++_entries;
    }
    void put(wchar_t ch)
    {
        if (_args != nullptr)
            _args[_characters] = ch;
        ++_characters;
    }

    wchar_t** _argv;
    wchar_t* _args;
    std::size_t _entries = 0;
    std::size_t _characters = 0;
};

int toInt(std::size_t count)
{
    return static_cast<int>(std::min<std::size_t>(count, std::numeric_limits<int>::max()));
}

/** The value in an argument of this name; null when it has another one. */
const wchar_t* valueOf(const wchar_t* argument, const wchar_t* name)
{
    for (; *name != 0; ++name, ++argument) {
        if (*argument != *name)
            return nullptr;
    }
    argument = skipBlanks(argument);
    return *argument == L'=' ? argument + 1 : nullptr;
}

template <class Integer>
Integer parseArgumentNumber(const wchar_t* commandLine, const wchar_t* name, Integer defaultValue)
{
    const ArgumentTable arguments(commandLine);
    const wchar_t* const value = arguments.find(name);
    return value == nullptr || *value == 0 ? defaultValue : text::parseInteger<Integer>(value);
}

const wchar_t* endOf(const String& text) { return text.getBuffer() + text.getLength(); }

/** Where the next line begins. */
const wchar_t* findNextLine(const wchar_t* p, const wchar_t* end)
{
    p = std::find(p, end, L'\n');
    return p < end ? p + 1 : end;
}

/** Takes everything in front of `p` off the text. */
void cutBefore(String& text, const wchar_t* p)
{
    if (p != text.getBuffer())
        text.setBuffer(p, static_cast<int>(endOf(text) - p) * static_cast<int>(sizeof(wchar_t)));
}

bool isTokenCharacter(wchar_t ch)
{
    return (ch >= L'a' && ch <= L'z') || (ch >= L'A' && ch <= L'Z') || (ch >= L'0' && ch <= L'9') ||
           ch == L'_';
}

} // namespace

void parseArguments(const wchar_t* commandLine, wchar_t** argv, wchar_t* args, int* argCount, int* charCount)
{
    ArgumentSplitter splitter(argv, args);
    splitter.split(commandLine != nullptr ? commandLine : L"");
    *argCount = toInt(splitter.entries());
    *charCount = toInt(splitter.characters());
}

void parseArguments(const wchar_t* commandLine, wchar_t**& argv, int& argc)
{
    const wchar_t* const line = commandLine != nullptr ? commandLine : L"";
    ArgumentSplitter counter(nullptr, nullptr);
    counter.split(line);
    const std::size_t tableSize = counter.entries() * sizeof(wchar_t*);
    argv = static_cast<wchar_t**>(std::malloc(tableSize + counter.characters() * sizeof(wchar_t)));
    argc = 0;
    if (argv == nullptr)
        return;
    ArgumentSplitter(argv, reinterpret_cast<wchar_t*>(argv + counter.entries())).split(line);
    argc = toInt(counter.entries() - 1);
}

ArgumentTable::ArgumentTable(const wchar_t* commandLine)
{
    const wchar_t* const line = commandLine != nullptr ? commandLine : L"";
    if (text::length(line) < shortLine) {
        _argv = _entries;
        ArgumentSplitter splitter(_entries, _characters);
        splitter.split(line);
        _argc = toInt(splitter.entries() - 1);
        return;
    }
    parseArguments(line, _argv, _argc);
    _owned.reset(_argv);
}

const wchar_t* ArgumentTable::find(const wchar_t* name) const
{
    for (int i = 0; i < _argc; ++i) {
        if (const wchar_t* value = valueOf(_argv[i], name))
            return value;
    }
    if (!isMade())
        missText(shortLine * sizeof(wchar_t)); // at least
    return nullptr;
}

String parseArgumentString(const wchar_t* commandLine, const wchar_t* name, const wchar_t* defaultValue)
{
    const ArgumentTable arguments(commandLine);
    const wchar_t* const value = arguments.find(name);
    return value != nullptr ? value : defaultValue;
}

int parseArgumentInt(const wchar_t* commandLine, const wchar_t* name, int defaultValue)
{
    return parseArgumentNumber(commandLine, name, defaultValue);
}

std::int64_t parseArgumentInt64(const wchar_t* commandLine, const wchar_t* name, std::int64_t defaultValue)
{
    return parseArgumentNumber(commandLine, name, defaultValue);
}

void skipSpaces(String& text) { text.trimLeft(); }

void skipLine(String& text) { cutBefore(text, findNextLine(text.getBuffer(), endOf(text))); }

void skipComments(String& text)
{
    const wchar_t* const end = endOf(text);
    const wchar_t* p = text.getBuffer();
    for (;;) {
        while (p < end && text::isSpace(*p))
            ++p;
        if (p == end || *p != L'#')
            break;
        p = findNextLine(p, end);
    }
    cutBefore(text, p);
}

String readToken(String& text)
{
    const wchar_t* const begin = text.getBuffer();
    const wchar_t* p = begin;
    while (isTokenCharacter(*p))
        ++p;
    const String token(begin, static_cast<int>(p - begin));
    cutBefore(text, p);
    return token;
}

} // namespace orvi
