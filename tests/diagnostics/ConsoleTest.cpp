#include "TextPrinting.h"

#include <orvi/core/Console.h>
#include <orvi/core/String.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <pty.h>
#include <string>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

using orvi::Console;
using orvi::ConsoleScreenBufferInfo;
using orvi::String;

namespace {

struct Outcome {
    std::string output;
    int exitCode = -1; // -1 for an end by a signal
};

std::string readAll(int file)
{
    std::string text;
    char part[4096];
    for (;;) {
        const ssize_t count = read(file, part, sizeof part);
        if (count > 0)
            text.append(part, static_cast<std::size_t>(count));
        else if (count == 0 || errno != EINTR) // a terminal ends with EIO
            return text;
    }
}

Outcome finish(pid_t child, int file)
{
    REQUIRE(child > 0);
    Outcome outcome;
    outcome.output = readAll(file);
    close(file);
    int status = 0;
    REQUIRE(waitpid(child, &status, 0) == child);
    if (WIFEXITED(status))
        outcome.exitCode = WEXITSTATUS(status);
    return outcome;
}

template <class Body>
[[noreturn]] void runChild(Body body)
{
    const int code = body();
    std::fflush(stdout);
    _exit(code);
}

/** Runs `body` in a child whose standard output is a pipe to us, and which has no controlling terminal. */
template <class Body>
Outcome runWithPipe(Body body)
{
    int ends[2];
    REQUIRE(pipe(ends) == 0);
    std::fflush(stdout); // else the child would write what this program has kept back
    const pid_t child = fork();
    if (child == 0) {
        setsid();
        dup2(ends[1], STDOUT_FILENO);
        close(ends[0]);
        close(ends[1]);
        runChild(body);
    }
    close(ends[1]);
    return finish(child, ends[0]);
}

/** The same with a terminal of 90 by 30 characters. */
template <class Body>
Outcome runWithTerminal(Body body)
{
    int master = -1;
    winsize size{30, 90, 0, 0};
    std::fflush(stdout);
    const pid_t child = forkpty(&master, nullptr, nullptr, &size);
    if (child == 0)
        runChild(body);
    return finish(child, master);
}

/** A text of `length` characters, three bytes each, and what it is in UTF-8. */
struct LongText {
    explicit LongText(std::size_t length)
        : wide(length, L'\u20ac')
    {
        wide.push_back(0);
        for (std::size_t i = 0; i < length; ++i)
            utf8 += "\xe2\x82\xac";
    }
    std::vector<wchar_t> wide;
    std::string utf8;
};

} // namespace

TEST_CASE("output is formatted, comes as UTF-8 and keeps its place among what stdio writes")
{
    const Outcome outcome = runWithPipe([] {
        std::printf("one ");
        Console::output(L"%s %d|", L"\u00e4\u20ac\U0001F600", 42);
        Console::output(L"");
        Console::output(nullptr);
        std::printf(" three ");
        Console::output(L"a%cb", 0);
        return 7;
    });
    CHECK(outcome.output == "one \xc3\xa4\xe2\x82\xac\xf0\x9f\x98\x80 42| three a");
    CHECK(outcome.exitCode == 7);
}

TEST_CASE("texts of every length come whole")
{
    for (const std::size_t length : {1024u, 1025u, 32768u, 32769u}) {
        CAPTURE(length);
        const LongText text(length);
        const Outcome outcome = runWithPipe([&] {
            Console::output(L"%s", text.wide.data());
            return 0;
        });
        CHECK((outcome.output == text.utf8));
    }
}

TEST_CASE("one call is one write")
{
    int ends[2];
    REQUIRE(socketpair(AF_UNIX, SOCK_SEQPACKET, 0, ends) == 0); // each write makes a packet
    const LongText text(20000);
    std::fflush(stdout);
    const pid_t child = fork();
    if (child == 0) {
        dup2(ends[1], STDOUT_FILENO);
        Console::output(L"short");
        Console::output(L"%s", text.wide.data());
        _exit(0);
    }
    close(ends[1]);
    std::vector<char> packet(100000);
    CHECK(read(ends[0], packet.data(), packet.size()) == 5);
    CHECK(read(ends[0], packet.data(), packet.size()) == 60000);
    CHECK(finish(child, ends[0]).exitCode == 0);
}

TEST_CASE("a slow reader of a pipe that does not block gets everything")
{
    const LongText text(200000);
    const Outcome outcome = runWithPipe([&] {
        fcntl(STDOUT_FILENO, F_SETFL, O_NONBLOCK);
        Console::output(L"%s", text.wide.data());
        return 0;
    });
    CHECK((outcome.output == text.utf8));
}

TEST_CASE("a reader that has gone does no harm")
{
    const Outcome outcome = runWithPipe([] {
        std::signal(SIGPIPE, SIG_DFL);
        int ends[2];
        if (pipe(ends) != 0)
            return 1;
        dup2(ends[1], STDOUT_FILENO);
        close(ends[0]);
        close(ends[1]);
        std::printf("lost");
        Console::output(L""); // only writes that
        Console::output(L"lost too");
        sigset_t pending;
        sigpending(&pending);
        return sigismember(&pending, SIGPIPE) == 0 ? 7 : 2;
    });
    CHECK(outcome.exitCode == 7);
}

TEST_CASE("what is no terminal has no size and gets no escape sequence")
{
    for (const bool isClosed : {false, true}) {
        CAPTURE(isClosed);
        const Outcome outcome = runWithPipe([isClosed] {
            if (isClosed) {
                close(STDOUT_FILENO);
                Console::output(L"lost");
            }
            ConsoleScreenBufferInfo info;
            info.sizeX = -5;
            const bool isRight = Console::setTitle(L"x") && Console::setTextAttribute(12) != isClosed &&
                                 !Console::setCursorPosition(0, 0) && !Console::getScreenBufferInfo(info) &&
                                 info.sizeX == -5 && !Console::alloc();
            return isRight ? 7 : 1;
        });
        CHECK(outcome.output.empty());
        CHECK(outcome.exitCode == 7);
    }
}

TEST_CASE("a terminal gets escape sequences, and tells its size and attributes")
{
    const struct {
        bool (*operation)();
        std::string expected;
        int attributes = 7;
    } rows[] = {
        {[] { return Console::setTextAttribute(0xABCD0007); },
         "\x1b[0m"}, // normal, the high bits do not count
        {[] { return Console::setTextAttribute(12); }, "\x1b[0;91m", 12},
        {[] { return Console::setTextAttribute(1); }, "\x1b[0;34m", 1},
        {[] { return Console::setTextAttribute(0x96); }, "\x1b[0;33;104m", 0x96},
        {[] { return Console::setCursorPosition(4, 0x10002); }, "\x1b[3;5H"},
        {[] { return !Console::setCursorPosition(0xFFFF, 2); }, ""},
        {[] { return Console::setTitle(nullptr); }, "\x1b]0;\a"},
        {[] { return Console::setTitle(L"\u00e4\a\x1b[2J\x9b!"); }, "\x1b]0;\xc3\xa4[2J!\a"},
    };
    for (const auto& row : rows) {
        CAPTURE(row.expected);
        const Outcome outcome = runWithTerminal([&] {
            ConsoleScreenBufferInfo info;
            const bool isRight = row.operation() && Console::getScreenBufferInfo(info) && info.sizeX == 90 &&
                                 info.sizeY == 30 && info.attributes == row.attributes;
            return isRight ? 7 : 1;
        });
        CHECK(outcome.output == row.expected);
        CHECK(outcome.exitCode == 7);
    }
}

TEST_CASE("alloc opens the terminal for those who have lost it, and free gives it back")
{
    const Outcome closed = runWithTerminal([] {
        if (Console::alloc()) // has one already
            return 1;
        close(STDIN_FILENO);
        close(STDOUT_FILENO);
        if (!Console::alloc() || isatty(STDIN_FILENO) != 1)
            return 2;
        Console::output(L"seen");
        std::printf(", this too");
        Console::free();
        Console::free();
        return Console::setTextAttribute(7) || isatty(STDIN_FILENO) == 1 ? 3 : 7;
    });
    CHECK(closed.output == "seen, this too");
    CHECK(closed.exitCode == 7);

    const Outcome redirected = runWithTerminal([] {
        int ends[2];
        if (pipe(ends) != 0)
            return 1;
        dup2(ends[1], STDOUT_FILENO);
        std::printf("for the pipe");
        if (!Console::alloc())
            return 2;
        Console::output(L"for the terminal");
        Console::free();
        Console::output(L"!");
        char text[32] = {};
        return read(ends[0], text, sizeof text - 1) == 13 && std::string(text) == "for the pipe!" ? 7 : 3;
    });
    CHECK(redirected.output == "for the terminal");
    CHECK(redirected.exitCode == 7);
}
