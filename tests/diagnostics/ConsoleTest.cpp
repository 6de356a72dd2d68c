#include "TextPrinting.h"

#include <orvi/core/Console.h>
#include <orvi/core/String.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <pty.h>
#include <string>
#include <string_view>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

using orvi::Console;
using orvi::ConsoleScreenBufferInfo;
using orvi::String;

namespace {

struct Outcome {
    std::string output;
    int exitCode = -1; // -1 for an end by a signal
};

Outcome finish(pid_t child, int file)
{
    REQUIRE(child > 0);
    Outcome outcome;
    char part[4096];
    for (ssize_t count = 1; count > 0;) { // a terminal ends with EIO
        count = read(file, part, sizeof part);
        outcome.output.append(part, static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
    }
    close(file);
    int status = 0;
    REQUIRE(waitpid(child, &status, 0) == child);
    if (WIFEXITED(status))
        outcome.exitCode = WEXITSTATUS(status);
    return outcome;
}

enum class Output { Pipe, Terminal };

/** Runs `body` in a child whose standard output is a pipe to us, and which has no controlling terminal; or where that
    is a terminal of 90 by 30 characters. */
template <class Body>
Outcome run(Output output, Body body)
{
    int ends[2] = {-1, -1};
    winsize size{30, 90, 0, 0};
    REQUIRE((output == Output::Terminal || pipe(ends) == 0));
    std::fflush(stdout); // else the child would write what this program has kept back
    const pid_t child = output == Output::Terminal ? forkpty(&ends[0], nullptr, nullptr, &size) : fork();
    if (child == 0) {
        if (output == Output::Pipe) {
            setsid();
            dup2(ends[1], STDOUT_FILENO);
            close(ends[0]);
            close(ends[1]);
        }
        const int code = body();
        std::fflush(stdout);
        _exit(code);
    }
    close(ends[1]);
    return finish(child, ends[0]);
}

/** A text of so many characters, in three bytes each. */
std::string longText(std::size_t length)
{
    std::string text;
    while (text.size() < length * 3)
        text += "\xe2\x82\xac";
    return text;
}

} // namespace

TEST_CASE("output is formatted, comes as UTF-8 and keeps its place among what stdio writes")
{
    const Outcome outcome = run(Output::Pipe, [] {
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

TEST_CASE("texts of every length come whole, one call in one write")
{
    int ends[2];
    REQUIRE(socketpair(AF_UNIX, SOCK_SEQPACKET, 0, ends) == 0); // each write makes a packet
    const std::size_t lengths[] = {1, 1024, 1025, 32768, 32769};
    std::fflush(stdout);
    const pid_t child = fork();
    if (child == 0) {
        dup2(ends[1], STDOUT_FILENO);
        for (const std::size_t length : lengths)
            Console::output(L"%S", longText(length).c_str());
        _exit(0);
    }
    close(ends[1]);
    std::string packet(100000, 0);
    for (const std::size_t length : lengths) {
        CAPTURE(length);
        const ssize_t size = read(ends[0], packet.data(), packet.size());
        CHECK(std::string_view(packet.data(), static_cast<std::size_t>(size)) == longText(length));
    }
    CHECK(finish(child, ends[0]).exitCode == 0);
}

TEST_CASE("a slow reader of a pipe that does not block gets everything")
{
    const std::string text = longText(200000);
    const Outcome outcome = run(Output::Pipe, [&] {
        fcntl(STDOUT_FILENO, F_SETFL, O_NONBLOCK);
        Console::output(L"%S", text.c_str());
        return 0;
    });
    CHECK((outcome.output == text));
}

TEST_CASE("a reader that has gone does no harm")
{
    const Outcome outcome = run(Output::Pipe, [] {
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
        const Outcome outcome = run(Output::Pipe, [isClosed] {
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
        {[] { return Console::setTextAttribute(0x96); }, "\x1b[0;33;104m", 0x96},
        {[] { return Console::setCursorPosition(4, 0x10002); }, "\x1b[3;5H"},
        {[] { return !Console::setCursorPosition(0xFFFF, 2); }, ""},
        {[] { return Console::setTitle(nullptr); }, "\x1b]0;\a"},
        {[] { return Console::setTitle(L"\u00e4\a\x1b[2J\x9b!"); }, "\x1b]0;\xc3\xa4[2J!\a"},
    };
    for (const auto& row : rows) {
        CAPTURE(row.expected);
        const Outcome outcome = run(Output::Terminal, [&] {
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
    const Outcome closed = run(Output::Terminal, [] {
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

    const Outcome redirected = run(Output::Terminal, [] {
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
