#include "ApphostProgram.h"

TEST_CASE("a document is parsed, looked into, changed, saved and loaded")
{
    const TempDirectory place;
    const Outcome outcome = run(place, "documents parse d {\"id\": 7, \"lines\": [{\"article\": \"a "
                                       "\\\"pen\\\"\"}], \"two words\": null} // x\n"
                                       "documents get d lines[0].article\n"
                                       "documents get d [\"two words\"]\n"
                                       "documents set d lines[1] {\"article\": \"ink\", \"price\": 4.5}\n"
                                       "documents set d [\"a.b\"] \"\\u00e4\\n\"\n"
                                       "documents get d .\n"
                                       "documents type d lines\n"
                                       "documents type d [\"a.b\"]\n"
                                       "documents save d indented\n"
                                       "documents save d \"on one line\" compact\n"
                                       "documents same indented \"memory://<<file://on one line\"\n"
                                       "documents set d . [1]\n"
                                       "documents load e memory://<<indented\n"
                                       "documents get e lines[1].price\n"
                                       "documents list\n");
    CAPTURE(outcome.text);
    CHECK(outcome.status == 0);
    CHECK(answerTo("parse", "documents", outcome.text) == "d: object of 3");
    CHECK(answerTo("get", "documents", outcome.text, 0) == "\"a \\\"pen\\\"\"");
    CHECK(answerTo("get", "documents", outcome.text, 1) == "null");
    CHECK(answerTo("get", "documents", outcome.text, 2) ==
          "{\"a.b\":\"ä\\n\",\"id\":7,\"lines\":[{\"article\":\"a "
          "\\\"pen\\\"\"},{\"article\":\"ink\",\"price\":4.5}],"
          "\"two words\":null}");
    CHECK(answerTo("type", "documents", outcome.text, 0) == "array of 2");
    CHECK(answerTo("type", "documents", outcome.text, 1) == "string of 2 characters");
    CHECK(answerTo("get", "documents", outcome.text, 3) == "4.5");
    CHECK(contains(outcome.text, "documents d: array of 1\ndocuments e: object of 4\n"));
}

TEST_CASE("what is wrong with a document is a failed command with a reason, and changes nothing")
{
    const TempDirectory place;
    fs::create_directory(place / "dir");
    write(place / "broken", "{\"a\":");
    write(place / "two", "1 2");
    const std::string start = "documents parse d {\"a\":[{\"b\":1}],\"c\":\"x\"}\n";
    const std::string deep(1025, '[');
    const std::string deepest = start + "! documents parse d " + deep + std::string(1025, ']') + "\n" +
                                "documents set d a[0].b " + deep.substr(4) + std::string(1021, ']') + "\n" +
                                "! documents set d a[0].b [" + deep.substr(4) + std::string(1022, ']') +
                                "\n" + "documents save d deep\ndocuments load d deep\n" + start;
    const Refusal rows[] = {
        {"documents parse", "usage: parse NAME JSON"},
        {"documents parse d {\"a\":", "malformed JSON"},
        {"documents parse d {} []", "more than one JSON value: '[]'"},
        {"documents parse d [1e400]", "a number that is too large"},
        {"documents get d", "usage: get NAME PATH"},
        {"documents get e a", "no document 'e'"},
        {"documents get d x", "there is no 'x'"},
        {"documents get d a[1]", "there is no 'a[1]'"},
        {"documents get d a[99999999999999999999]", "there is no 'a["},
        {"documents get d a.b", "'a' is no object"},
        {"documents get d c[0]", "'c' is no array"},
        {"documents get d [0]", "the document is no array"},
        {"documents get d a[-1]", "'a[-1]' begins with no path"},
        {"documents get d a[\"x]", "begins with no path"},
        {"documents get d a..b", "begins with no path"},
        {"documents get d a b", "a path has no blank"},
        {"documents set d x.y 1", "there is no 'x'"},
        {"documents set d c.y 1", "'c' is no object"},
        {"documents set d a[2] 1", "the next place in 'a' is [1]"},
        {"documents set d a[0].b.c 1", "'a[0].b' is no object"},
        {"documents set d a[0] {", "malformed JSON"},
        {"documents load d gone", "cannot open 'gone': ENOENT"},
        {"documents load d dir", "cannot open 'dir': EISDIR"},
        {"documents load d memory://<<gone", "cannot open 'memory://<<gone': ENOENT"},
        {"documents load d cloud://x", "cannot open 'cloud://x': no such archive"},
        {"documents load d broken", "'broken' is malformed JSON"},
        {"documents load d two", "'two' is more than one JSON value"},
        {"documents save d dir", "cannot write 'dir': EISDIR"},
        {"documents save d memory://x", "is a URL"},
        {"documents save d file pretty", "'pretty' is no form"},
        {"documents same broken gone", "'broken' is malformed JSON"},
        {"documents drop e", "no document 'e'"},
        {"uuid show 10b8a76b-ad9d-d111-80b4-00c04fd430c", "is no uuid"},
        {"uuid name nowhere x", "'nowhere' is no uuid"},
        {"uuid new 99999999999999999999", "is no number from 1 to 1000"},
    };
    checkRefusals(place, deepest, rows);
    CHECK_FALSE(fs::exists(place / "file"));
    const Outcome outcome =
        run(place, start + "! documents set d a[7] 1\n! documents get d x.y\ndocuments get d .\n");
    CHECK(answerTo("get", "documents", outcome.text, 1) == "{\"a\":[{\"b\":1}],\"c\":\"x\"}");
}

TEST_CASE("objects are made, edited by the names of their properties, saved, loaded and cloned")
{
    const TempDirectory place;
    const Outcome outcome =
        run(place, "objects classes\n"
                   "objects create b Bug\n"
                   "objects edit b id \"10b8a76b-ad9d-d111-80b4-00c04fd430c8\"\n"
                   "objects edit b title \"Say \\\"no\\\"\"\n"
                   "objects edit b due \"2024-2-29 12:00\"\n"
                   "objects edit b labels [\"ui\", \"late\"]\n"
                   "objects edit b card {\"__class__\": \"Point\", \"x\": 4}\n"
                   "objects edit b owner {\"__class__\": \"Person\", \"name\": \"Ada\"}\n"
                   "objects save b bug.json\n"
                   "objects clear b owner\n"
                   "objects read p {\"__class__\": \"Project\", \"tasks\": [{\"__class__\": \"Meeting\", "
                   "\"guests\": [{\"__class__\": "
                   "\"Person\", \"name\": \"Bob\"}]}, {\"__class__\": \"Bug\", \"steps\": [\"go\"]}]}\n"
                   "objects save p project.json\n"
                   "objects load q memory://<<project.json\n"
                   "objects clone q r\n"
                   "objects save r copy.json\n"
                   "documents same project.json copy.json\n"
                   "documents load p copy.json\n"
                   "documents get p tasks[0].guests[0].name\n"
                   "objects list\n"
                   "classes create Meeting\n"
                   "classes clone 1\n");
    CAPTURE(outcome.text);
    CHECK(outcome.status == 0);
    CHECK(
        contains(outcome.text,
                 "objects   Bug\nobjects   Meeting\nobjects   Person\nobjects   Project\nobjects   Task\n"));
    const std::string bug = "b: Bug 'Say \"no\"', priority 3, due 2024-2-29 12:00:00";
    CHECK(answerTo("edit", "objects", outcome.text, 5) == bug + ", of Ada");
    CHECK(answerTo("clear", "objects", outcome.text) == bug);
    CHECK(answerTo("same", "documents", outcome.text) == "they are equal");
    CHECK(answerTo("get", "documents", outcome.text) == "\"Bob\"");
    std::ifstream file(place / "bug.json");
    const std::string text(std::istreambuf_iterator<char>(file), {});
    CHECK(contains(text, "\"card\" : {\n        \"x\" : 4,\n        \"y\" : 0\n    }"));
    CHECK(contains(text, "\"id\" : \"10b8a76b-ad9d-d111-80b4-00c04fd430c8\""));
    CHECK(contains(text, "\"ui\",\n        \"late\""));
}

TEST_CASE("what an object cannot take is a failed command with the reasons, and changes nothing")
{
    const TempDirectory place;
    write(place / "list", "[1]");
    const std::string start = "objects create b Bug\n"
                              "objects edit b owner {\"__class__\": \"Person\", \"name\": \"Ada\"}\n"
                              "objects create p Project\n"
                              "objects save b before\n";
    const Refusal rows[] = {
        {"objects create x Note", "'Note' is no class of the model"},
        {"objects create x Dragon", "'Dragon' is no class of the model"},
        {"objects classes Property", "'Property' is no class of the model"},
        {"objects show x", "no object 'x'"},
        {"objects edit b tail 1", "tail is no property"},
        {"objects edit b __class__ \"Task\"", "__class__ is not the class"},
        {"objects edit b priority", "usage: edit NAME PROPERTY JSON"},
        {"objects edit b priority {", "malformed JSON"},
        {"objects edit b priority 99999999999", "the library reports: uintValue out of Int32 range"},
        {"objects edit b priority [1]", "priority is of the wrong kind"},
        {"objects edit b due \"soon\"",
         "the library reports: void convertPropertyToClass(JsonValue const &,Time &)"},
        {"objects edit b id 5",
         "the library reports: void convertPropertyToClass(JsonValue const &, Uuid &)"},
        {"objects edit b labels \"x\"", "labels is of the wrong kind"},
        {"objects edit b owner null", "owner names no class"},
        {"objects edit b owner {\"name\":\"Bob\"}", "owner names no class"},
        {"objects edit b owner {\"__class__\":\"Bug\"}", "the library reports: Error attribute implement. "},
        {"objects edit b owner {\"__class__\":\"Dragon\"}",
         "the library reports: void PropertyAttribute::set("},
        {"objects edit p tasks [{\"__class__\":\"Person\"}]", "tasks[0] names no object that fits"},
        {"objects edit p tasks [null, 5]", "tasks[1] names no object that fits"},
        {"objects clear b due", "'due' is no property that holds one object"},
        {"objects read x {\"__class__\":\"Dragon\"}", "'Dragon' is no class of the model"},
        {"objects read x {\"__class__\":\"Property\"}", "'Property' is no class of the model"},
        {"objects read x {\"__class__\":\"Bug\",\"owner\":{\"name\":\"Bob\"}}",
         "owner names no object that fits"},
        {"objects load x list", "the document names no class"},
        {"objects load x gone", "cannot open 'gone': ENOENT"},
    };
    checkRefusals(place, start, rows);

    std::string nested = "{\"__class__\":\"Project\"}"; // as deep as a document can be
    for (int i = 0; i < 511; ++i)
        nested = "{\"__class__\":\"Project\",\"tasks\":[" + nested + "]}";
    const std::string tooDeep = "{\"__class__\":\"Project\",\"tasks\":[" + nested + "]}";
    std::string lines = start;
    lines += "! objects edit b due \"soon\"\n";
    lines += "objects save b after\n";
    lines += "objects read deep " + nested + "\n";
    lines += "objects clone deep deeper\n";
    lines += "! objects read deep " + tooDeep + "\n";
    lines += "! objects edit p tasks [" + nested + "]\n";
    const Outcome outcome = run(place, lines);
    CHECK(outcome.status == 0);
    CHECK(contains(outcome.text, "documents nest at most 1024 deep\nobjects   nothing has changed\n"));
    std::ifstream before(place / "before"), after(place / "after");
    CHECK(std::string(std::istreambuf_iterator<char>(after), {}) ==
          std::string(std::istreambuf_iterator<char>(before), {}));
}

TEST_CASE("identifiers")
{
    const TempDirectory place;
    const Outcome outcome = run(place, "uuid new 2\n"
                                       "uuid name dns python.org\n"
                                       "uuid name 10b8a76b-ad9d-d111-80b4-00c04fd430c8 python.org\n"
                                       "uuid show 10B8A76B-AD9D-D111-80B4-00C04FD430C8\n"
                                       "uuid compare 10b8a76b-ad9d-d111-80b4-00c04fd430c8 "
                                       "11b8a76b-ad9d-d111-80b4-00c04fd430c8\n");
    CAPTURE(outcome.text);
    CHECK(outcome.status == 0);
    // In the text of RFC 4122: 6fa459ea-ee8a-3ca4-894e-db77e160355e
    CHECK(answerTo("name", "uuid", outcome.text, 0) == "ea59a46f-8aee-a43c-894e-db77e160355e");
    CHECK(answerTo("name", "uuid", outcome.text, 1) == "ea59a46f-8aee-a43c-894e-db77e160355e");
    CHECK(
        contains(outcome.text, "version 1, node 00c04fd430c8\nuuid      made 1998-2-4 22:13:53 Etc/GMT+0\n"));
    CHECK(answerTo("compare", "uuid", outcome.text) == "less");
}

TEST_CASE("a configuration says which applications start")
{
    const TempDirectory place;
    const struct {
        const char* what;
        const char* text;
        int status;
        const char* answer;
    } rows[] = {
        {"two applications",
         "[other]\na = b\n[AppHost]\n apps = clock fast\nfast=counter 7\n# x\nclock = time Etc/GMT-8\n", 0,
         "host      clock, kind time\nhost      fast, kind counter\n"},
        {"nothing", "", 2, "no names under the key 'apps'"},
        {"no names", "[apphost]\napps =\n", 2, "no names under the key 'apps'"},
        {"no name", "[apphost]\napps = a b-c\n", 2, "letters, digits and _ alone, not as here: -c"},
        {"a name twice", "[apphost]\napps = a A\na = time\n", 2, "has the name 'A' twice"},
        {"no line", "[apphost]\napps = a b\na = time\n", 2, "no line 'b = KIND'"},
        {"no kind", "[apphost]\napps = a\na = clock\n", 2, "no kind 'clock' for 'a'"},
        {"parameters that are none", "[apphost]\napps = a b\na = time\nb = counter soon\n", 2,
         "no application of the kind 'counter' with these parameters"},
        {"a name with a meaning", "[apphost]\napps = quit\nquit = time\n", 2, "'quit' has a meaning here"},
    };
    for (const auto& row : rows) {
        CAPTURE(row.what);
        write(place / "conf", row.text);
        const Outcome outcome = run(place, "apps\n", {"--config", "conf"});
        CAPTURE(outcome.text);
        CHECK(outcome.status == row.status);
        CHECK(contains(outcome.text, row.answer));
    }
    const struct {
        std::vector<std::string> options;
        const char* answer;
    } calls[] = {
        {{"--config"}, "usage: apphost"},
        {{"--config", "conf", "--bare"}, "usage: apphost"},
        {{"--config", "none"}, "cannot open 'none': ENOENT"},
        {{"--config", "."}, "cannot open '.': EISDIR"},
        {{"--config", "cloud://x"}, "cannot open 'cloud://x': no such archive"},
    };
    for (const auto& call : calls) {
        CAPTURE(call.answer);
        const Outcome outcome = run(place, "", call.options);
        CHECK(outcome.status == 2);
        CHECK(contains(outcome.text, call.answer));
    }
}
