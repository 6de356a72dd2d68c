#include "Program.h"
#include "TextPrinting.h"

namespace fs = std::filesystem;

namespace {

Outcome run(const TempDirectory& place, std::string_view lines, const std::vector<std::string>& options = {})
{
    Program program(ORVI_APPHOST, options, place.path(), lines);
    program.closeInput();
    return program.finish();
}

} // namespace

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

TEST_CASE("applications of all kinds answer or refuse, and so do their clients and one of a module")
{
    const TempDirectory place;
    place.write("Grüße 日本.txt", "Hallo");
    fs::create_directories(place / "tree/inner");
    for (const char* name : {"tree/a.txt", "tree/b.png", "tree/inner/C.TXT"})
        place.write(name);
    const struct { // what begins with "!" has to fail
        const char* line;
        const char* answer;
    } rows[] = {
        {"files copy \"Grüße 日本.txt\" copied", "files     5 bytes copied"},
        {"files md5 \"Grüße 日本.txt\"", "files     d1bf93299de1b68e6d382c893bf1215f"},
        {"files scan tree txt bmp", "files     tree/a.txt\nfiles     tree/inner/C.TXT\nfiles     2 in all\n"},
        {"files remove tree/b.png", "files     $END OK"},
        {"start files f tree\nf size a.txt", "f         1 bytes"},
        {"classes note \"To do\" Water the plants\nclasses clone 1",
         "classes   object 2: Note, 'To do', 'Water the plants', "},
        {"classes create 0x00345e2e\nclasses write 3", "classes   4f2e5e340000000000000000000000"},
        {"classes read 4f2e5e34000241024280bdb9df0e000000", "classes   object 4: Note, 'A', 'B', "},
        {"start counter c 1\nclient c\nuse c\n: start\nwait 50\nc#2 stop", "c> wait 50\n"},
        {"exit c#2\n! c count\nstart counter c\nc count", "c         0, stopped"},
        {"start talk alice den\nstart talk bob den\nbob status", "bob       client of 'den', with alice\n"},
        {"load echo.so\nload echo.so\nkinds", "echo; PARAMETERS: what stands in front of each word\n"},
        {"start echo e \"> \"\ne say hello \"dear reader\"", "e         > hello\ne         > dear reader\n"},
        {"documents parse d {\"id\": 7, \"lines\": [{\"article\": \"a pen\"}]} // x", "$BEGIN parse"},
        {"documents set d lines[1] {\"article\": \"ink\", \"price\": 4.5}\ndocuments get d .",
         R"({"id":7,"lines":[{"article":"a pen"},{"article":"ink","price":4.5}]})"},
        {"documents save d x\ndocuments load e memory://<<x\ndocuments get e lines[1].price", " 4.5\n"},
        {"objects create b Bug\nobjects edit b due \"2024-2-29 12:00\"",
         "b: Bug '', priority 3, due 2024-2-29 12:00:00\n"},
        {"objects save b bug\nobjects load c bug\nobjects clone c e\nobjects save e copy\ndocuments same bug "
         "copy",
         "they are equal\n"},
        // In the text of RFC 4122: 6fa459ea-ee8a-3ca4-894e-db77e160355e
        {"uuid name dns python.org", "uuid      ea59a46f-8aee-a43c-894e-db77e160355e\n"},
        {"! start counter x 0", "no application of the kind 'counter' with these parameters"},
        {"! classes read 4f2e5e3400060041004100", "exception: "},
        {"! load \"" ORVI_APPHOST_OTHER_MODULE "\"", "is no module for this program"},
        {"! objects edit b due \"soon\"",
         "the library reports: void convertPropertyToClass(JsonValue const &,Time &)"},
    };
    std::string lines;
    for (const auto& row : rows)
        lines += row.line + std::string("\n");
    const Outcome outcome = run(place, lines);
    CAPTURE(outcome.text);
    CHECK(outcome.status == 0);
    for (const auto& row : rows) {
        CAPTURE(row.line);
        CHECK(outcome.has(row.answer));
    }
    CHECK_FALSE(fs::exists(place / "tree/b.png"));
    CHECK(place.read("copied") == "Hallo");
}

TEST_CASE("the exit status tells about the commands and the call")
{
    const TempDirectory place;
    place.write("good", "time now\r\nfiles size good"); // no line feed at the end
    place.write("bad", "time yesterday\ntime now\n");
    place.write("apps", "[other]\na = b\n[AppHost]\n apps = clock\n# x\nclock = time Etc/GMT-8\n");
    const struct {
        std::vector<std::string> options;
        int status;
        const char* text;
    } rows[] = {
        {{"good"}, 0, "files     25 bytes"},
        {{"bad"}, 1, "no command 'yesterday' here"},
        {{"none"}, 2, "cannot open 'none'"},
        {{"."}, 1, "cannot read on: "},
        {{"good", "bad"}, 2, "usage: apphost"},
        {{"--log"}, 1, "Unable to load ./none.  ./none: "},
        {{"--config", "apps"}, 1, "host      clock, kind time\n"},
        {{"--config", "good"}, 2, "no names under the key 'apps'"},
    };
    for (const auto& row : rows) {
        CAPTURE(row.options.back());
        const Outcome outcome = run(place, "! apps\n! load ./none\n", row.options);
        CAPTURE(outcome.text);
        CHECK(outcome.status == row.status);
        CHECK(outcome.has(row.text));
    }
}

TEST_CASE("a command that has a fault fails, and its application and the others go on")
{
    setenv("LSAN_OPTIONS", "detect_leaks=0", 1);         // a fault leaves what its command held
    setenv("TSAN_OPTIONS", "report_signal_unsafe=0", 1); // and what is done then is done with care
    const Outcome outcome = run(
        TempDirectory(), "! counter crash\ncounter start\n! counter crash\ncounter count\ntime parse 5\n");
    CAPTURE(outcome.text);
    CHECK(outcome.status == 0);
    CHECK(outcome.has("counter   $BEGIN crash\n"));
    CHECK(outcome.has("counting"));
    CHECK_FALSE(outcome.has("does not answer"));
    int reports = 0;
    for (const auto& entry : fs::directory_iterator(fs::path(ORVI_APPHOST).parent_path())) {
        if (outcome.has(entry.path().string() + "\n"))
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
    } rows[] = {
        {"time now\n", "time      $END OK", 0},
        {"wait 3000000\n", "> wait 3000000", 1},
        {"files md5 endless\n", "$BEGIN md5", 1},
    };
    for (const auto& row : rows) {
        CAPTURE(row.last);
        Program program(ORVI_APPHOST, {}, place.path(), row.lines);
        program.waitFor(row.last);
        program.signal(SIGINT);
        const Outcome outcome = program.finish();
        CHECK(outcome.status == row.status);
        for (const char* goodbye : {"files     $BYE\n", "time      $BYE\n", "uuid      $BYE\n"})
            CHECK(outcome.has(goodbye));
    }
}
