#include "ApphostProgram.h"

#include <random>

TEST_CASE("a script on standard input becomes a transcript in order")
{
    const TempDirectory place;
    const Outcome outcome =
        run(place, "# the time\nstart time t\nt format 62167132800\n\n! t: format x\n", {"--bare"});
    CHECK(outcome.status == 0);
    CHECK(outcome.text == "# the time\n"
                          "> start time t\n"
                          "t         $HELLO\n"
                          "> t format 62167132800\n"
                          "t         $BEGIN format\n"
                          "t         1970-1-1 00:00:00 Etc/GMT+0\n"
                          "t         $END OK\n"
                          "\n"
                          "> ! t: format x\n"
                          "t         $BEGIN format\n"
                          "t         'x' is no number of seconds, or one too far away\n"
                          "t         $END FAILED\n"
                          "t         $NOTHING\n"
                          "t         $BYE\n");
}

TEST_CASE("applications of all kinds answer, and so do their clients and one of a module")
{
    const TempDirectory place;
    std::string large(3 * 1024 * 1024 + 1, 0);
    std::generate(large.begin(), large.end(), std::minstd_rand());
    write(place / "large", large);
    write(place / "Grüße 日本.txt", "Hallo");
    fs::create_directories(place / "tree/inner");
    for (const char* name : {"tree/a.txt", "tree/b.png", "tree/inner/C.TXT"})
        write(place / name, "x");
    const struct {
        const char* line;
        const char* answer;
    } rows[] = {
        {"files copy large copied", "files     3145729 bytes copied"},
        {"files md5 \"Grüße 日本.txt\"", "files     d1bf93299de1b68e6d382c893bf1215f"},
        {"files base64 \"Grüße 日本.txt\"", "files     SGFsbG8="},
        {"files hex \"Grüße 日本.txt\" 4", "files     00000000 48616c6c"},
        {"files scan tree txt bmp", "files     tree/a.txt\nfiles     tree/inner/C.TXT\nfiles     2 in all\n"},
        {"files dirs tree", "files     inner\nfiles     1 in all\n"},
        {"files remove large", "files     $END OK"},
        {"start files f tree\nf size a.txt", "f         1 bytes"},
        {"classes note \"To do\" Water the plants\nclasses clone 1",
         "classes   object 2: Note, 'To do', 'Water the plants', "},
        {"classes create 0x00345e2e\nclasses write 3", "classes   4f2e5e340000000000000000000000"},
        {"classes read 4f2e5e34000241024280bdb9df0e000000", "classes   object 4: Note, 'A', 'B', "},
        {"start counter c 1\nclient c\nuse c\n: start\nwait 50\nc#2 stop", "c> wait 50\n"},
        {"exit c#2\n! c count\nstart counter c\nc count", "c         0, stopped"},
        {"counter help pace", "$END OK"},
        {"start talk alice den\nstart talk bob den\nbob status", "bob       client of 'den', with alice\n"},
        {"load echo.so\nload echo.so\nkinds", "echo; PARAMETERS: what stands in front of each word\n"},
        {"start echo e \"> \"\ne say hello \"dear reader\"", "e         > hello\ne         > dear reader\n"},
    };
    std::string lines;
    for (const auto& row : rows)
        lines += row.line + std::string("\n");
    const Outcome outcome = run(place, lines);
    CAPTURE(outcome.text);
    CHECK(outcome.status == 0);
    for (const auto& row : rows) {
        CAPTURE(row.line);
        CHECK(contains(outcome.text, row.answer));
    }
    CHECK_FALSE(fs::exists(place / "large"));
    std::ifstream copied(place / "copied", std::ios::binary);
    CHECK(std::string(std::istreambuf_iterator<char>(copied), {}) == large);
}

TEST_CASE("the exit status tells about the commands and the call")
{
    const TempDirectory place;
    write(place / "good", "time now\r\nfiles size good"); // no line feed at the end
    write(place / "bad", "time yesterday\ntime now\n");
    const std::string longLine(100'000, 'x');
    write(place / "long", "time now\n" + longLine + "\ntime zones\n" + longLine);
    const struct {
        std::vector<std::string> options;
        int status;
        const char* text;
    } rows[] = {
        {{"good"}, 0, "files     25 bytes"},
        {{"bad"}, 1, "no command 'yesterday' here"},
        {{"long"}, 1, "a line is too long\n> time zones\n"},
        {{"none"}, 2, "cannot open 'none'"},
        {{"."}, 1, "cannot read on: "},
        {{"good", "bad"}, 2, "usage: apphost"},
        {{"--help"}, 0, "usage: apphost"},
    };
    for (const auto& row : rows) {
        CAPTURE(row.options[0]);
        const Outcome outcome = run(place, "", row.options);
        CHECK(outcome.status == row.status);
        CHECK(contains(outcome.text, row.text));
    }
}

TEST_CASE("what makes no sense is a failed command with a reason")
{
    const TempDirectory place;
    const Refusal rows[] = {
        {"nobody: hello", "'nobody' is neither a command nor an application"},
        {": now", "no application is in use"},
        {"start", "usage: start KIND [NAME [PARAMETERS]]"},
        {"start clock", "no application of the kind 'clock'"},
        {"start counter c 0", "no application of the kind 'counter' with these parameters"},
        {"start time", "there is an application 'time' already"},
        {"start time a:b", "a name has no blank"},
        {"exit nobody", "no application 'nobody'"},
        {"wait -1", "'-1' is no number of milliseconds"},
        {"time parse 2023-2-29", "'2023-2-29' is no time"},
        {"files md5 none", "cannot open 'none': ENOENT"},
        {"files copy . x", "cannot "},
        {"classes show 7", "no object '7'"},
        {"classes read 4f2e5e3400060041004100", "exception: "},
        {"talk say hello", "nobody is at the other side of ''"},
        {"talk count 1000001", "'1000001' is no number from 1 to 1000000"},
        {"load none.so", "'none.so' does not load: the log has the reason"},
        {"load \"" ORVI_APPHOST_OTHER_MODULE "\"", "is no module for this program"},
    };
    checkRefusals(place, "", rows);
    const Outcome unexpected = run(place, "! time now\n! load ./none\n", {"--log"});
    CHECK(unexpected.status == 1);
    CHECK(contains(unexpected.text, "this should have failed"));
    CHECK(contains(unexpected.text, "Unable to load ./none.  ./none: "));
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
    int reports = 0;
    for (const auto& entry : fs::directory_iterator(fs::path(ORVI_APPHOST).parent_path())) {
        if (contains(outcome.text, entry.path().string() + "\n"))
            reports += fs::remove(entry.path());
    }
    CHECK(reports == 2);
}

TEST_CASE("Ctrl-C ends all applications in order")
{
    const TempDirectory place;
    fs::create_symlink("/dev/zero", place / "endless");
    const struct {
        const char* lines;
        const char* last; // to wait for
        int status;
        std::vector<std::string> options = {};
    } rows[] = {
        {"time now\n", "time      $END OK", 0},
        {"wait 3000000\n", "> wait 3000000", 1},
        {"files md5 endless\n", "$BEGIN md5", 1},
        {"", "uuid      $HELLO\n", 0, {"endless"}}, // a line without an end
    };
    for (const auto& row : rows) {
        CAPTURE(row.last);
        Program program(place, row.lines, row.options);
        REQUIRE(program.waitFor(row.last));
        program.signal(SIGINT);
        CHECK(program.finish() == row.status);
        for (const char* label : {"files", "time", "classes", "counter", "documents", "objects", "uuid"}) {
            CAPTURE(label);
            const std::vector<std::string> lines = linesOf(label, program.seen());
            REQUIRE(!lines.empty());
            CHECK(lines.front() == "$HELLO");
            CHECK(lines.back() == "$BYE");
        }
    }
}
