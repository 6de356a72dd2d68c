#pragma once
#include "ServiceProcess.h"

#include <string_view>

struct Outcome {
    int status; // negative, the signal that ended it
    std::string text;
    bool has(std::string_view part) const { return text.find(part) != std::string::npos; }
};

/** Another program as a child process, which talks to the test. */
class Program {
public:
    /** `input`: what it reads at first; without a reader some 60 KiB find room. */
    Program(const char* program, const std::vector<std::string>& options,
            const std::filesystem::path& place = "/", std::string_view input = {})
        : _process("", [&] {
            for (const int standard : {0, 1, 2})
                dup2(_ends[1], standard);
            setenv("TZ", "UTC0", 1);
            return chdir(place.c_str()) == 0 ? execute(program, options) : 127;
        })
    {
        REQUIRE(_made == 0);
        close(_ends[1]);
        send(_ends[0], input.data(), input.size(), MSG_NOSIGNAL); // which it may not read to the end
    }
    ~Program() { close(_ends[0]); }
    Program& operator=(Program&&) = delete;

    void signal(int number) const { _process.kill(number); }
    void closeInput() const { shutdown(_ends[0], SHUT_WR); }
    /** Reads until the text has come. */
    void waitFor(std::string_view text)
    {
        while (_text.find(text) == std::string::npos)
            REQUIRE(readMore());
    }
    /** Reads up to the end. */
    Outcome finish()
    {
        while (readMore()) {
        }
        return {_process.wait(), _text};
    }

private:
    bool readMore()
    {
        pollfd source = {_ends[0], POLLIN, 0};
        REQUIRE(poll(&source, 1, servicePatienceMs) == 1);
        char piece[65536];
        const ssize_t count = read(_ends[0], piece, sizeof piece);
        _text.append(piece, count > 0 ? static_cast<std::size_t>(count) : 0);
        return count > 0;
    }

    int _ends[2] = {};
    const int _made = socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, _ends);
    ServiceProcess _process;
    std::string _text;
};
