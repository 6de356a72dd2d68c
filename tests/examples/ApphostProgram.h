#pragma once
#include "TempDirectory.h"
#include "TextPrinting.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>
#include <vector>

#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

namespace fs = std::filesystem;

constexpr int patienceMs = 60'000;

inline void write(const fs::path& path, std::string_view bytes)
{
    std::ofstream(path, std::ios::binary) << bytes;
}

/** The program as a child process, with pipes for its input and output. */
class Program {
public:
    Program(const TempDirectory& place, std::vector<std::string> options)
    {
        int input[2], output[2];
        REQUIRE(pipe2(input, O_CLOEXEC) == 0);
        REQUIRE(pipe2(output, O_CLOEXEC) == 0);
        std::vector<char*> argv = {const_cast<char*>(ORVI_APPHOST)};
        for (std::string& option : options)
            argv.push_back(option.data());
        argv.push_back(nullptr);
        std::signal(SIGPIPE, SIG_IGN);
        _process = fork();
        REQUIRE(_process >= 0);
        if (_process == 0) {
            std::signal(SIGPIPE, SIG_DFL);
            dup2(input[0], 0);
            dup2(output[1], 1);
            dup2(output[1], 2);
            setenv("TZ", "UTC0", 1);
            if (chdir(place.path().c_str()) == 0)
                execv(ORVI_APPHOST, argv.data());
            _exit(127);
        }
        close(input[0]);
        close(output[1]);
        _input = input[1];
        _output = output[0];
    }
    ~Program()
    {
        closeInput();
        close(_output);
        if (_process > 0) { // a check has failed before its end
            ::kill(_process, SIGKILL);
            waitpid(_process, nullptr, 0);
        }
    }
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;

    /** For texts that a pipe holds without a reader, some 60 KiB. A program may end without reading them. */
    void type(std::string_view text)
    {
        const ssize_t count = ::write(_input, text.data(), text.size());
        REQUIRE((count == static_cast<ssize_t>(text.size()) || errno == EPIPE));
    }
    void closeInput()
    {
        if (_input >= 0)
            close(_input);
        _input = -1;
    }
    void signal(int number) const { REQUIRE(::kill(_process, number) == 0); }

    /** Reads until the text has come; false when the output ends without it. */
    bool waitFor(std::string_view text)
    {
        while (_seen.find(text) == std::string::npos) {
            if (!readMore())
                return false;
        }
        return true;
    }

    /** Reads up to the end; gives the exit status, or the negative number of the signal that ended it. */
    int finish()
    {
        while (readMore()) {
        }
        int status = 0;
        REQUIRE(waitpid(_process, &status, 0) == _process);
        _process = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    }
    const std::string& seen() const { return _seen; }

private:
    bool readMore()
    {
        pollfd source = {_output, POLLIN, 0};
        REQUIRE(poll(&source, 1, patienceMs) == 1);
        std::array<char, 65536> piece;
        const ssize_t count = read(_output, piece.data(), piece.size());
        if (count > 0)
            _seen.append(piece.data(), static_cast<std::size_t>(count));
        return count > 0;
    }

    pid_t _process = -1;
    int _input = -1;
    int _output = -1;
    std::string _seen;
};

struct Outcome {
    int status;
    std::string text;
};

inline Outcome run(const TempDirectory& place, std::string_view lines,
                   const std::vector<std::string>& options = {})
{
    Program program(place, options);
    program.type(lines);
    program.closeInput();
    const int status = program.finish();
    return {status, program.seen()};
}

inline bool contains(std::string_view text, std::string_view part)
{
    return text.find(part) != std::string_view::npos;
}

/** The lines with this label, without it. */
inline std::vector<std::string> linesOf(const std::string& label, const std::string& text)
{
    std::vector<std::string> lines;
    const std::string padded = label + std::string(label.size() < 9 ? 10 - label.size() : 1, ' ');
    for (std::size_t begin = 0, end; (end = text.find('\n', begin)) != std::string::npos; begin = end + 1) {
        const std::string line = text.substr(begin, end - begin);
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
