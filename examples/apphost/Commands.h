#pragma once
#include <orvi/core/String.h>

#include <cstdarg>
#include <functional>
#include <limits>
#include <optional>
#include <vector>

namespace apphost {

/** One command under way: its words, and the way back to whoever gave it. Borrows the words and the line. */
class Call {
public:
    using Answer = std::function<void(const orvi::String&)>;

    /** `line` is what the words come from. */
    Call(wchar_t** words, int count, const wchar_t* line, Answer answer);

    /** The words behind the command word. */
    int arguments() const { return _count - 1; }
    /** 0 is the command word. */
    const wchar_t* operator[](int index) const { return _words[index]; }
    /** The words from `index` on, with one blank between them. */
    orvi::String rest(int index) const;
    /** The line from that word on as it was typed: JSON keeps its quotes. */
    const wchar_t* tail(int index) const;

    /** Answers with one line; formats as String::format does. */
    void say(const wchar_t* format, ...) const;
    /** The same with the reason of a failure; gives false, for `return call.fail(...)`. */
    bool fail(const wchar_t* format, ...) const;

private:
    void answer(const wchar_t* format, std::va_list values) const;

    wchar_t** _words;
    int _count;
    const wchar_t* _line;
    Answer _answer;
};

/** One row of a table of commands. */
struct Command {
    const wchar_t* name;
    const wchar_t* usage; // the arguments, as help shows them
    const wchar_t* purpose;
    int leastArguments;
    int mostArguments;
    std::function<bool(const Call&)> run; // false: the command failed, and has said why
};

/** For Command::run: a method of an object that outlives the table. */
template <class Owner>
std::function<bool(const Call&)> method(Owner* owner, bool (Owner::*run)(const Call&))
{
    return [owner, run](const Call& call) { return (owner->*run)(call); };
}

constexpr int anyNumber = std::numeric_limits<int>::max();

/** The commands that somebody understands. The command "help" comes by itself. */
class CommandTable {
public:
    /** `notes` are lines for the end of the help. */
    explicit CommandTable(std::vector<Command> commands, std::vector<const wchar_t*> notes = {});

    bool contains(const orvi::String& name) const;
    /** False when the command failed, is unknown or has the wrong number of arguments. */
    bool run(const Call& call) const;

private:
    const Command* find(const orvi::String& name) const;
    bool help(const Call& call) const;

    std::vector<Command> _commands;
    std::vector<const wchar_t*> _notes;
};

/** A whole number in digits of the base; nothing for other texts. */
std::optional<long long> parseNumber(const wchar_t* text, int base = 10);

} // namespace apphost
