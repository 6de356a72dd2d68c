#include "ServiceProcess.h"
#include "TextPrinting.h"

#include <orvi/core/Console.h>

#include <cstdio>
#include <pty.h>
#include <string>
#include <utmp.h>

using namespace orvi;

namespace {

enum class Output { Pipe, Terminal };

/** What a child writes that runs `body`, which tells whether all is right there. Its standard output is a pipe to us, and
    it has no controlling terminal; or that is a terminal of 90 by 30 characters. */
template <class Body>
std::string outputOf(Output output, Body body)
{
    int ends[2];
    const winsize size{30, 90, 0, 0};
    const bool isTerminal = output == Output::Terminal;
    REQUIRE((isTerminal ? openpty(&ends[0], &ends[1], nullptr, nullptr, &size) : pipe(ends)) == 0);
    std::fflush(stdout); // else the child would write what this program has kept back
    ServiceProcess child("", [&] {
        close(ends[0]);
        if (isTerminal ? login_tty(ends[1]) != 0 : setsid() < 0 || dup2(ends[1], STDOUT_FILENO) < 0)
            return 127;
        const bool isRight = body();
        std::fflush(stdout);
        return isRight ? 0 : 1;
    });
    close(ends[1]);
    std::string text;
    char part[4096];
    for (ssize_t count = 0; (count = read(ends[0], part, sizeof part)) > 0;) // a terminal ends with EIO
        text.append(part, static_cast<std::size_t>(count));
    close(ends[0]);
    CHECK(child.wait() == 0);
    return text;
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
    const std::string output = outputOf(Output::Pipe, [] {
        std::printf("one ");
        Console::output(L"%s %d|", L"\u00e4\u20ac\U0001F600", 42);
        Console::output(L"");
        Console::output(nullptr);
        std::printf(" three ");
        Console::output(L"a%cb", 0);
        return true;
    });
    CHECK(output == "one \xc3\xa4\xe2\x82\xac\xf0\x9f\x98\x80 42| three a");
}

TEST_CASE("texts of every length come whole, one call in one write")
{
    int ends[2];
    REQUIRE(socketpair(AF_UNIX, SOCK_SEQPACKET, 0, ends) == 0); // each write makes a packet
    for (const std::size_t length : {1u, 1024u, 1025u, 32768u, 32769u}) {
        CAPTURE(length);
        const std::string text = longText(length);
        std::fflush(stdout);
        ServiceProcess child("", [&] {
            dup2(ends[1], STDOUT_FILENO);
            Console::output(L"%S", text.c_str());
            return 0;
        });
        CHECK(child.wait() == 0);
        std::string packet(100000, 0);
        const ssize_t size = recv(ends[0], packet.data(), packet.size(), MSG_DONTWAIT);
        CHECK(packet.substr(0, static_cast<std::size_t>(size)) == text);
    }
    for (const int end : ends)
        close(end);
}

TEST_CASE("a slow reader of a pipe that does not block gets everything")
{
    const std::string text = longText(200000);
    const std::string output = outputOf(Output::Pipe, [&] {
        fcntl(STDOUT_FILENO, F_SETFL, O_NONBLOCK);
        Console::output(L"%S", text.c_str());
        return true;
    });
    CHECK((output == text));
}

TEST_CASE("a reader that has gone does no harm")
{
    outputOf(Output::Pipe, [] {
        std::signal(SIGPIPE, SIG_DFL);
        int ends[2];
        if (pipe(ends) != 0 || dup2(ends[1], STDOUT_FILENO) < 0)
            return false;
        close(ends[0]);
        std::printf("lost");
        Console::output(L""); // only writes that
        Console::output(L"lost too");
        sigset_t pending;
        sigpending(&pending);
        return sigismember(&pending, SIGPIPE) == 0;
    });
}

TEST_CASE("what is no terminal has no size and gets no escape sequence")
{
    for (const bool isClosed : {false, true}) {
        CAPTURE(isClosed);
        const std::string output = outputOf(Output::Pipe, [isClosed] {
            if (isClosed) {
                close(STDOUT_FILENO);
                Console::output(L"lost");
            }
            ConsoleScreenBufferInfo info;
            info.sizeX = -5;
            return Console::setTitle(L"x") && Console::setTextAttribute(12) != isClosed &&
                   !Console::setCursorPosition(0, 0) && !Console::getScreenBufferInfo(info) &&
                   info.sizeX == -5 && !Console::alloc();
        });
        CHECK(output.empty());
    }
}

TEST_CASE("a terminal gets escape sequences, and tells its size and attributes")
{
    const struct {
        bool (*operation)();
        std::string expected;
        int attributes = 7;
    } rows[] = {
        {[] { return Console::setTextAttribute(0xABCD0007); }, "\x1b[0m"}, // the high bits do not count
        {[] { return Console::setTextAttribute(12); }, "\x1b[0;91m", 12},
        {[] { return Console::setTextAttribute(0x96); }, "\x1b[0;33;104m", 0x96},
        {[] { return Console::setCursorPosition(4, 0x10002); }, "\x1b[3;5H"},
        {[] { return !Console::setCursorPosition(0xFFFF, 2); }, ""},
        {[] { return Console::setTitle(nullptr); }, "\x1b]0;\a"},
        {[] { return Console::setTitle(L"\u00e4\a\x1b[2J\x9b!"); }, "\x1b]0;\xc3\xa4[2J!\a"},
    };
    for (const auto& row : rows) {
        CAPTURE(row.expected);
        const std::string output = outputOf(Output::Terminal, [&row] {
            ConsoleScreenBufferInfo info;
            return row.operation() && Console::getScreenBufferInfo(info) && info.sizeX == 90 &&
                   info.sizeY == 30 && info.attributes == row.attributes;
        });
        CHECK(output == row.expected);
    }
}

TEST_CASE("alloc opens the terminal for those who have lost it, and free gives it back")
{
    const std::string closed = outputOf(Output::Terminal, [] {
        const bool hadOne = !Console::alloc();
        close(STDIN_FILENO);
        close(STDOUT_FILENO);
        const bool hasOne = Console::alloc() && isatty(STDIN_FILENO) == 1;
        Console::output(L"seen");
        std::printf(", this too");
        Console::free();
        Console::free();
        return hadOne && hasOne && !Console::setTextAttribute(7) && isatty(STDIN_FILENO) == 0;
    });
    CHECK(closed == "seen, this too");

    const std::string redirected = outputOf(Output::Terminal, [] {
        int ends[2];
        if (pipe(ends) != 0 || dup2(ends[1], STDOUT_FILENO) < 0)
            return false;
        std::printf("for the pipe");
        const bool hasOne = Console::alloc();
        Console::output(L"for the terminal");
        Console::free();
        Console::output(L"!");
        char text[32] = {};
        return hasOne && read(ends[0], text, sizeof text - 1) == 13 && std::string(text) == "for the pipe!";
    });
    CHECK(redirected == "for the terminal");
}
