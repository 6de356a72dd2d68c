#include "ApphostProgram.h"

#include <random>

namespace {

std::string randomBytes(std::size_t count)
{
    std::mt19937 generator(4711);
    std::string bytes(count, 0);
    std::generate(bytes.begin(), bytes.end(), [&] { return static_cast<char>(generator()); });
    return bytes;
}

} // namespace

TEST_CASE("a script on standard input becomes a transcript in order")
{
    const TempDirectory place;
    const Outcome outcome = run(place,
                                "# the time\n"
                                "time: format 62167132800\n"
                                "\n"
                                "time format x\n",
                                {"--bare"});
    CHECK(outcome.status == 1);
    CHECK(outcome.text ==
          "# the time\n"
          "> time: format 62167132800\n"
          "host      'time' is neither a command nor an application: help and apps list them\n"
          "\n"
          "> time format x\n"
          "host      'time' is neither a command nor an application: help and apps list them\n");

    const Outcome started = run(place,
                                "start time t\n"
                                "t format 62167132800\n"
                                "! t: format x\n",
                                {"--bare"});
    CHECK(started.status == 0);
    CHECK(started.text == "> start time t\n"
                          "t         $HELLO\n"
                          "> t format 62167132800\n"
                          "t         $BEGIN format\n"
                          "t         1970-1-1 00:00:00 Etc/GMT+0\n"
                          "t         $END OK\n"
                          "> ! t: format x\n"
                          "t         $BEGIN format\n"
                          "t         'x' is no number of seconds, or one too far away\n"
                          "t         $END FAILED\n"
                          "t         $NOTHING\n"
                          "t         $BYE\n");
}

TEST_CASE("all kinds run at once, and each has help")
{
    const TempDirectory place;
    const Outcome outcome =
        run(place, "files help\ntime help\nclasses help\ncounter help\ncounter help pace\n"
                   "documents help\nobjects help\nuuid help\n");
    CHECK(outcome.status == 0);
    for (const char* label : {"files", "time", "classes", "counter", "documents", "objects", "uuid"}) {
        CAPTURE(label);
        const std::vector<std::string> lines = linesOf(label, outcome.text);
        REQUIRE(lines.size() > 5);
        CHECK(lines.front() == "$HELLO");
        CHECK(lines[1] == "$BEGIN help");
        CHECK(lines.back() == "$BYE");
        CHECK(std::count(lines.begin(), lines.end(), "$END OK") == (label == std::string("counter") ? 2 : 1));
    }
}

TEST_CASE("the exit status tells about the commands and the call")
{
    const TempDirectory place;
    write(place / "good", "time now\r\nfiles size good"); // no line feed at the end
    write(place / "bad", "time yesterday\ntime now\n");
    const std::string longLine(100'000, 'x');
    write(place / "long", "time now\n" + longLine + "\ntime zones\n" + longLine);
    const struct {
        const char* what;
        std::vector<std::string> options;
        int status;
        const char* text;
    } rows[] = {
        {"all fine", {"good"}, 0, "files     25 bytes"},
        {"a failure in the middle", {"bad"}, 1, "no command 'yesterday' here"},
        {"lines that are too long", {"long"}, 1, "a line is too long\n> time zones\n"},
        {"a script that is missing", {"none"}, 2, "cannot open 'none'"},
        {"a directory as script", {"."}, 1, "cannot read on: "},
        {"an unknown option", {"--fast"}, 2, "usage: apphost"},
        {"two scripts", {"good", "bad"}, 2, "usage: apphost"},
        {"help", {"--help"}, 0, "usage: apphost"},
    };
    for (const auto& row : rows) {
        CAPTURE(row.what);
        const Outcome outcome = run(place, "", row.options);
        CAPTURE(outcome.text);
        CHECK(outcome.status == row.status);
        CHECK(contains(outcome.text, row.text));
    }
}

TEST_CASE("what makes no sense is a failed command with a reason")
{
    const TempDirectory place;
    write(place / "full", "here");
    const struct {
        const char* line;
        const char* reason;
    } rows[] = {
        {"nobody: hello", "'nobody' is neither a command nor an application"},
        {": now", "no application is in use"},
        {"start", "usage: start KIND [NAME [PARAMETERS]]"},
        {"start clock", "no application of the kind 'clock'"},
        {"start counter c 0", "no application of the kind 'counter' with these parameters"},
        {"start time t Mars", "no application of the kind 'time' with these parameters"},
        {"start time", "there is an application 'time' already"},
        {"start time exit", "'exit' has a meaning here"},
        {"start time a:b", "a name has no blank"},
        {"start time \"a b\"", "a name has no blank"},
        {"client nobody", "no application 'nobody'"},
        {"exit nobody", "no application 'nobody'"},
        {"use nobody", "no application 'nobody'"},
        {"wait -1", "'-1' is no number of milliseconds"},
        {"! time now", "this should have failed"},
        {"!! time now", "neither a command nor an application"},
        {"time", "no command '' here"},
        {"time help tomorrow", "no command 'tomorrow' here"},
        {"time now Etc/GMT+99", "'Etc/GMT+99' is no zone"},
        {"time parse 2023-2-29", "'2023-2-29' is no time"},
        {"time format 99999999999999999999", "is no number of seconds"},
        {"files md5", "usage: md5 FILE"},
        {"files md5 none", "cannot open 'none': ENOENT"},
        {"files size none", "'none' is not there"},
        {"files hex full -1", "'-1' is no number of bytes"},
        {"files copy full full", "cannot create 'full': EEXIST"},
        {"files remove .", "cannot open '.'"},
        {"classes create Dragon", "no class 'Dragon'"},
        {"classes create 0x123456789", "no class '0x123456789'"},
        {"classes show 7", "no object '7'"},
        {"classes read 123", "'123' is not hexadecimal"},
        {"classes read 4fffffff", "exception: "},
        {"counter stop", "it is not counting"},
        {"counter pace soon", "'soon' is no number of milliseconds"},
    };
    std::string lines;
    for (const auto& row : rows)
        lines += row.line + std::string("\n");
    const Outcome all = run(place, lines + "files md5 full\n");
    CHECK(all.status == 1);
    CHECK(answerTo("md5", "files", all.text, 2) == "6c92285fa6d3e827b198d120ea3ac674");

    for (const auto& row : rows) {
        CAPTURE(row.line);
        const std::size_t echo = all.text.find("> " + std::string(row.line) + "\n");
        REQUIRE(echo != std::string::npos);
        const std::string answer = all.text.substr(echo, all.text.find("\n> ", echo) - echo);
        CAPTURE(answer);
        CHECK(contains(answer, row.reason));
    }
}

TEST_CASE("a command that has a fault fails, and its application and the others go on")
{
    const TempDirectory place;
    setenv("LSAN_OPTIONS", "detect_leaks=0", 1);         // a fault leaves what its command held
    setenv("TSAN_OPTIONS", "report_signal_unsafe=0", 1); // and what is done then is done with care
    const Outcome outcome =
        run(place, "! counter crash\ncounter start\n! counter crash\ncounter count\ntime parse 5\n");
    CAPTURE(outcome.text);
    CHECK(outcome.status == 0);
    CHECK(contains(outcome.text, "counter   $BEGIN crash\n"));
    CHECK_FALSE(contains(outcome.text, "does not answer"));
    CHECK(contains(answerTo("count", "counter", outcome.text), "counting"));
    CHECK(contains(outcome.text, "crash@"));
    const fs::path directory = fs::path(ORVI_APPHOST).parent_path();
    std::vector<fs::path> reports;
    for (const auto& entry : fs::directory_iterator(directory)) {
        if (contains(outcome.text, entry.path().string() + "\n"))
            reports.push_back(entry.path());
    }
    CHECK(reports.size() == 2);
    for (const fs::path& report : reports)
        fs::remove(report);
}

TEST_CASE("files are measured, digested, shown and copied")
{
    const TempDirectory place;
    const std::string large = randomBytes(3 * 1024 * 1024 + 1);
    write(place / "large", large);
    write(place / "Grüße 日本.txt", "Hallo");
    write(place / "empty", "");
    const Outcome outcome = run(place, "files copy large copied\n"
                                       "files md5 large\n"
                                       "files md5 copied\n"
                                       "files size copied\n"
                                       "files md5 \"Grüße 日本.txt\"\n"
                                       "files base64 \"Grüße 日本.txt\"\n"
                                       "files hex \"Grüße 日本.txt\" 4\n"
                                       "files copy empty void\n"
                                       "files remove empty\n"
                                       "! files base64 large\n");
    CAPTURE(outcome.text.substr(0, 4000));
    CHECK(outcome.status == 0);
    CHECK(answerTo("copy", "files", outcome.text) == "3145729 bytes copied");
    CHECK(answerTo("md5", "files", outcome.text, 0) == answerTo("md5", "files", outcome.text, 1));
    CHECK(answerTo("md5", "files", outcome.text, 2) == "d1bf93299de1b68e6d382c893bf1215f");
    CHECK(answerTo("base64", "files", outcome.text) == "SGFsbG8=");
    CHECK(answerTo("hex", "files", outcome.text) == "00000000 48616c6c");
    CHECK(fs::file_size(place / "void") == 0);
    CHECK_FALSE(fs::exists(place / "empty"));

    std::ifstream copied(place / "copied", std::ios::binary);
    CHECK(std::string(std::istreambuf_iterator<char>(copied), {}) == large);
}

TEST_CASE("a directory given at the start is where relative paths begin")
{
    const TempDirectory place;
    fs::create_directory(place / "inner");
    write(place / "inner/a", "Hallo");
    const Outcome outcome = run(place, "start files f inner\nf md5 a\n", {"--bare"});
    CHECK(outcome.status == 0);
    CHECK(answerTo("md5", "f", outcome.text) == "d1bf93299de1b68e6d382c893bf1215f");
}

TEST_CASE("objects are made, cloned, written and read back")
{
    const TempDirectory place;
    const Outcome outcome = run(place, "classes list\n"
                                       "classes note \"To do\" Water the plants\n"
                                       "classes clone 1\n"
                                       "classes drop 1\n"
                                       "classes create 0x00345e2e\n"
                                       "classes write 3\n"
                                       "classes read 4f2e5e3400060041004100\n"
                                       "classes read 4f2e5e34000241024280bdb9df0e000000\n"
                                       "classes show\n");
    CAPTURE(outcome.text);
    CHECK(outcome.status == 1); // the first reading
    CHECK(contains(outcome.text, "0x00345e2e Note\n"));
    CHECK(answerTo("clone", "classes", outcome.text)
              .starts_with("object 2: Note, 'To do', 'Water the plants', "));
    CHECK(answerTo("create", "classes", outcome.text).starts_with("object 3: Note, '', '', "));
    CHECK(answerTo("write", "classes", outcome.text) == "4f2e5e340000000000000000000000");
    CHECK(answerTo("read", "classes", outcome.text, 0).starts_with("exception: "));
    CHECK(answerTo("read", "classes", outcome.text, 1).starts_with("object 4: Note, 'A', 'B', "));
    CHECK(answerTo("show", "classes", outcome.text).starts_with("object 2: "));
}

TEST_CASE("two clients of one application see its one state, and each its own answers")
{
    const TempDirectory place;
    const Outcome outcome = run(place,
                                "start counter c 1\n"
                                "client c\n"
                                "c start\n"
                                "wait 50\n"
                                "c#2 stop\n"
                                "c count\n"
                                "c#2 count\n"
                                "c reset\n"
                                "c#2 count\n"
                                "exit c#2\n"
                                "! c count\n",
                                {"--bare"});
    CAPTURE(outcome.text);
    CHECK(outcome.status == 0);
    const std::string count = answerTo("count", "c", outcome.text);
    CHECK(std::stoi(count) > 0);
    CHECK(count == answerTo("count", "c#2", outcome.text, 0));
    CHECK(answerTo("count", "c#2", outcome.text, 1) == "0, stopped");
    for (const char* label : {"c", "c#2"}) {
        const std::vector<std::string> lines = linesOf(label, outcome.text);
        REQUIRE(!lines.empty());
        CHECK(lines.front() == "$HELLO");
        CHECK(lines.back() == "$BYE");
    }
}

TEST_CASE("an application ends while the others go on")
{
    const TempDirectory place;
    const Outcome outcome = run(place, "use time\n"
                                       "format 0\n"
                                       "exit time\n"
                                       "! now\n"
                                       "counter count\n"
                                       "start time\n"
                                       "time now\n"
                                       "use counter\n"
                                       ": start\n");
    CAPTURE(outcome.text);
    CHECK(outcome.status == 0);
    CHECK(contains(outcome.text, "time> format 0\n"));
    CHECK(answerTo("count", "counter", outcome.text) == "0, stopped");
    CHECK(answerTo("start", "counter", outcome.text) == "$END OK");
    const std::vector<std::string> lines = linesOf("time", outcome.text);
    CHECK(std::count(lines.begin(), lines.end(), "$HELLO") == 2);
    CHECK(std::count(lines.begin(), lines.end(), "$BYE") == 2);
}

TEST_CASE("Ctrl-C ends all applications in order")
{
    const TempDirectory place;
    const struct {
        const char* what;
        const char* lines;
        const char* last; // to wait for
        int status;
    } rows[] = {
        {"while it waits for a line", "client counter\ntime now\n", "time      $END OK", 0},
        {"while a command waits", "client counter\nwait 3000000\n", "> wait 3000000", 1},
        {"while an application works", "client counter\nfiles md5 endless\n", "$BEGIN md5", 1},
    };
    for (const auto& row : rows) {
        CAPTURE(row.what);
        fs::remove(place / "endless");
        fs::create_symlink("/dev/zero", place / "endless");
        Program program(place, {});
        program.type(row.lines);
        REQUIRE(program.waitFor(row.last));
        program.signal(SIGINT);
        CHECK(program.finish() == row.status);
        const std::string& text = program.seen();
        CAPTURE(text);
        for (const char* label : {"files", "time", "classes", "counter", "counter#2"}) {
            CAPTURE(label);
            const std::vector<std::string> lines = linesOf(label, text);
            REQUIRE(!lines.empty());
            CHECK(lines.back() == "$BYE");
        }
    }
}

TEST_CASE("Ctrl-C ends the reading of a line without an end")
{
    const TempDirectory place;
    fs::create_symlink("/dev/zero", place / "endless");
    Program program(place, {"endless"});
    REQUIRE(program.waitFor("uuid      $HELLO\n"));
    program.signal(SIGINT);
    CHECK(program.finish() == 0);
    CHECK(program.seen().ends_with("uuid      $BYE\n"));
}

TEST_CASE("the log is shown on request")
{
    const TempDirectory place;
    CHECK(contains(run(place, "files md5 none\n", {"--log"}).text, "error: "));
    CHECK_FALSE(contains(run(place, "files md5 none\n").text, "error: "));
}
