#pragma once
#include "ServiceProcess.h"
#include "TextPrinting.h"

#include <algorithm>
#include <fstream>
#include <sstream>
#include <string_view>

namespace fs = std::filesystem;

inline void write(const fs::path& path, std::string_view bytes)
{
    std::ofstream(path, std::ios::binary) << bytes;
}

inline bool contains(std::string_view text, std::string_view part)
{
    return text.find(part) != std::string_view::npos;
}

/** The program as a child process, with a socket for its input and output. */
class Program {
public:
    /** `lines`: no more than the connection holds without a reader, some 60 KiB. */
    Program(const TempDirectory& place, std::string_view lines, const std::vector<std::string>& options)
        : _process("", [&] { return become(place, options); })
    {
        close(_ends[1]);
        send(_ends[0], lines.data(), lines.size(), MSG_NOSIGNAL); // which it may not read to the end
    }
    ~Program() { close(_ends[0]); }
    Program& operator=(Program&&) = delete;

    void signal(int number) const { _process.kill(number); }
    void closeInput() { shutdown(_ends[0], SHUT_WR); }

    /** Reads until the text has come; false when the output ends without it. */
    bool waitFor(std::string_view text)
    {
        while (!contains(_seen, text)) {
            if (!readMore())
                return false;
        }
        return true;
    }
    /** Reads up to the end; gives the exit status. */
    int finish()
    {
        while (readMore()) {
        }
        return _process.wait();
    }
    const std::string& seen() const { return _seen; }

private:
    /** A pair of which the program has one end. */
    struct Ends {
        Ends() { REQUIRE(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, numbers) == 0); }
        int operator[](int i) const { return numbers[i]; }
        int numbers[2];
    };

    int become(const TempDirectory& place, const std::vector<std::string>& options) const
    {
        for (const int standard : {0, 1, 2})
            dup2(_ends[1], standard);
        setenv("TZ", "UTC0", 1);
        return chdir(place.path().c_str()) == 0 ? execute(ORVI_APPHOST, options) : 127;
    }
    bool readMore()
    {
        pollfd source = {_ends[0], POLLIN, 0};
        REQUIRE(poll(&source, 1, servicePatienceMs) == 1);
        char piece[65536];
        const ssize_t count = read(_ends[0], piece, sizeof piece);
        if (count > 0)
            _seen.append(piece, static_cast<std::size_t>(count));
        return count > 0;
    }

    const Ends _ends;
    ServiceProcess _process;
    std::string _seen;
};

struct Outcome {
    int status;
    std::string text;
};
inline Outcome run(const TempDirectory& place, std::string_view lines,
                   const std::vector<std::string>& options = {})
{
    Program program(place, lines, options);
    program.closeInput();
    return {program.finish(), program.seen()};
}

/** The lines with this label, without it. */
inline std::vector<std::string> linesOf(const std::string& label, const std::string& text)
{
    std::vector<std::string> lines;
    const std::string padded = label + std::string(label.size() < 9 ? 10 - label.size() : 1, ' ');
    std::istringstream all(text);
    for (std::string line; std::getline(all, line);) {
        if (line.starts_with(padded))
            lines.push_back(line.substr(padded.size()));
    }
    return lines;
}

/** The line behind "$BEGIN" and this word, the first or a later time. */
inline std::string answerTo(const std::string& word, const std::string& label, const std::string& text,
                            int occurrence = 0)
{
    const std::vector<std::string> lines = linesOf(label, text);
    for (auto line = lines.begin(); line != lines.end(); ++line) {
        if (*line == "$BEGIN " + word && occurrence-- == 0)
            return line + 1 != lines.end() ? line[1] : std::string();
    }
    return {};
}

struct Refusal {
    const char* line;
    const char* reason;
};
/** Runs all lines in one go behind the preparation. Each has to fail, and to give its reason. */
template <std::size_t count>
void checkRefusals(const TempDirectory& place, const std::string& preparation, const Refusal (&rows)[count])
{
    std::string lines = preparation;
    for (const Refusal& row : rows)
        lines += "! " + std::string(row.line) + "\n";
    const Outcome all = run(place, lines);
    CHECK(all.status == 0);
    for (const Refusal& row : rows) {
        CAPTURE(row.line);
        const std::size_t echo = all.text.find("> ! " + std::string(row.line) + "\n");
        REQUIRE(echo != std::string::npos);
        const std::string answer = all.text.substr(echo, all.text.find("\n> ", echo) - echo);
        CAPTURE(answer);
        CHECK(contains(answer, row.reason));
        CHECK_FALSE(contains(answer, "this should have failed"));
    }
}
