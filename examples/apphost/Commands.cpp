#include "Commands.h"

#include <orvi/core/Encoding.h>

#include <charconv>
#include <cstdarg>
#include <utility>

namespace apphost {

using orvi::String;

namespace {

constexpr wchar_t helpLine[] = L"%-32s %s";

String nameAndUsage(const Command& command)
{
    return *command.usage != 0 ? String(command.name) + L" " + command.usage : String(command.name);
}

bool isBlank(wchar_t ch) { return ch == L' ' || ch == L'\t'; }

/** Passes a word as orvi::parseArguments delimits it. */
const wchar_t* skipWord(const wchar_t* p, bool isCommandWord)
{
    for (bool quoted = false; *p != 0 && (quoted || !isBlank(*p)); ++p) {
        if (*p == L'\\' && !isCommandWord && (p[1] == L'\\' || p[1] == L'"')) {
            ++p;
        } else if (*p == L'"') {
            if (quoted && p[1] == L'"' && !isCommandWord)
                ++p;
            quoted = !quoted;
        }
    }
    return p;
}

const wchar_t* skipBlanks(const wchar_t* p)
{
    while (isBlank(*p))
        ++p;
    return p;
}

} // namespace

Call::Call(wchar_t** words, int count, const wchar_t* line, Answer answer)
    : _words(words)
    , _count(count)
    , _line(line)
    , _answer(std::move(answer))
{}

String Call::rest(int index) const
{
    String text;
    for (int i = index; i < _count; ++i) {
        if (i > index)
            text += L" ";
        text += _words[i];
    }
    return text;
}

const wchar_t* Call::tail(int index) const
{
    const wchar_t* p = _line;
    for (int i = 0; i < index; ++i)
        p = skipBlanks(skipWord(p, i == 0));
    return p;
}

void Call::say(const wchar_t* format, ...) const
{
    std::va_list values;
    va_start(values, format);
    answer(format, values);
    va_end(values);
}

bool Call::fail(const wchar_t* format, ...) const
{
    std::va_list values;
    va_start(values, format);
    answer(format, values);
    va_end(values);
    return false;
}

void Call::answer(const wchar_t* format, std::va_list values) const
{
    String text;
    text.vprintf(format, values);
    _answer(text);
}

CommandTable::CommandTable(std::vector<Command> commands, std::vector<const wchar_t*> notes)
    : _commands(std::move(commands))
    , _notes(std::move(notes))
{
    _commands.push_back({L"help", L"[COMMAND]", L"this list, or one line of it", 0, 1,
                         [this](const Call& call) { return help(call); }});
}

const Command* CommandTable::find(const String& name) const
{
    for (const Command& command : _commands) {
        if (name == command.name)
            return &command;
    }
    return nullptr;
}

bool CommandTable::contains(const String& name) const { return find(name) != nullptr; }

bool CommandTable::run(const Call& call) const
{
    const Command* command = find(call[0]);
    if (command == nullptr)
        return call.fail(L"no command '%s' here: help lists them", call[0]);
    if (call.arguments() < command->leastArguments || call.arguments() > command->mostArguments)
        return call.fail(L"usage: %s", nameAndUsage(*command).getBuffer());
    return command->run(call);
}

bool CommandTable::help(const Call& call) const
{
    if (call.arguments() == 1) {
        const Command* command = find(call[1]);
        if (command == nullptr)
            return call.fail(L"no command '%s' here: help lists them", call[1]);
        call.say(helpLine, nameAndUsage(*command).getBuffer(), command->purpose);
        return true;
    }
    for (const Command& command : _commands)
        call.say(helpLine, nameAndUsage(command).getBuffer(), command.purpose);
    for (const wchar_t* note : _notes)
        call.say(L"%s", note);
    return true;
}

std::optional<long long> parseNumber(const wchar_t* text, int base)
{
    const orvi::String_T<char> digits = orvi::StringHelper::wideToUtf8(text);
    const char* const end = digits.getBuffer() + digits.getBufferLength() - 1;
    long long number = 0;
    const auto [stopped, error] = std::from_chars(digits.getBuffer(), end, number, base);
    if (error != std::errc() || stopped != end)
        return std::nullopt;
    return number;
}

} // namespace apphost
