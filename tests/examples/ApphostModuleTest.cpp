#include "ApphostProgram.h"

TEST_CASE("a module brings a kind of application")
{
    const TempDirectory place;
    const Outcome outcome = run(place,
                                "! start echo\n"
                                "load echo.so\n"
                                "load echo.so\n"
                                "kinds\n"
                                "start echo e \"> \"\n"
                                "e say hello \"dear reader\"\n"
                                "! e shout hello\n"
                                "exit e\n"
                                "start echo\n"
                                "echo say once\n",
                                {"--bare"});
    CAPTURE(outcome.text);
    CHECK(outcome.status == 0);
    CHECK(contains(outcome.text, "e         $BEGIN say\ne         > hello\ne         > dear reader\n"
                                 "e         $END OK\n"));
    CHECK(answerTo("say", "echo", outcome.text) == "once");
    const std::vector<std::string> lines = linesOf("host", outcome.text);
    // Said by both loads, and once by the list.
    CHECK(std::count(lines.begin(), lines.end(), "echo; PARAMETERS: what stands in front of each word") == 3);
    CHECK_FALSE(contains(outcome.text, "has been setup"));
    CHECK(linesOf("echo", outcome.text).back() == "$BYE");
}

TEST_CASE("what is no module for the host does not come in")
{
    const TempDirectory place;
    write(place / "text", "no library");
    const Refusal rows[] = {
        {"load", "usage: load MODULE"},
        {"load none.so", "'none.so' does not load: the log has the reason"},
        {"load ./text", "'./text' does not load"},
        {"load .", "'.' does not load"},
        {"load \"\"", "'' does not load"},
        {"load \"" ORVI_APPHOST_OTHER_MODULE "\"", "is no module for this program"},
    };
    checkRefusals(place, "", rows);
    CHECK(contains(run(place, "load ./text\n", {"--log"}).text, "Unable to load ./text.  ./text: "));
}

TEST_CASE("directories are looked through")
{
    const TempDirectory place;
    fs::create_directories(place / "tree/inner");
    fs::create_directory(place / "many");
    for (const char* name : {"tree/a.txt", "tree/b.png", "tree/inner/C.TXT", "tree/.hidden"})
        write(place / name, "x");
    for (int i = 0; i < 1001; ++i)
        write(place / ("many/" + std::to_string(i)).c_str(), "x");
    const Outcome outcome = run(place, "files scan tree txt bmp\n"
                                       "files scan tree/inner/\n"
                                       "files dirs tree\n"
                                       "files dirs tree/inner\n"
                                       "files scan many\n"
                                       "! files scan none\n"
                                       "! files dirs tree/a.txt\n");
    CHECK(outcome.status == 0);
    CHECK(contains(outcome.text, "files     tree/a.txt\nfiles     tree/inner/C.TXT\nfiles     2 in all\n"));
    CHECK(contains(outcome.text, "files     tree/inner/C.TXT\nfiles     1 in all\n"));
    CHECK(contains(outcome.text, "files     inner\nfiles     1 in all\n"));
    CHECK(contains(outcome.text, "files     0 in all\n"));
    CHECK(contains(outcome.text, "files     1001 in all, of which 1000 are shown\n"));
    CHECK(contains(outcome.text, "files     'none' is no directory\n"));
    CHECK(contains(outcome.text, "files     'tree/a.txt' is no directory\n"));
    const std::vector<std::string> lines = linesOf("files", outcome.text);
    CHECK(std::count_if(lines.begin(), lines.end(),
                        [](const std::string& line) { return line.starts_with("many/"); }) == 1000);
}
