#include "ApphostProgram.h"

TEST_CASE("documents and objects are made, looked into, changed, saved, loaded and cloned")
{
    const TempDirectory place;
    const Outcome outcome = run(place, R"(
documents parse d {"id": 7, "lines": [{"article": "a \"pen\""}], "two words": null} // x
documents get d lines[0].article
documents set d lines[1] {"article": "ink", "price": 4.5}
documents get d .
documents save d indented
documents save d "on one line" compact
documents same indented "memory://<<file://on one line"
documents load e memory://<<indented
documents get e lines[1].price
objects create b Bug
objects edit b due "2024-2-29 12:00"
objects edit b owner {"__class__": "Person", "name": "Ada"}
objects clear b owner
objects read p {"__class__": "Project", "tasks": [{"__class__": "Bug", "owner": {"__class__": "Person"}}]}
objects save p project.json
objects load q memory://<<project.json
objects clone q r
objects save r copy.json
documents same project.json copy.json
classes create Meeting
classes clone 1
uuid name dns python.org
uuid show 10B8A76B-AD9D-D111-80B4-00C04FD430C8
)");
    CAPTURE(outcome.text);
    CHECK(outcome.status == 0);
    CHECK(answerTo("get", "documents", outcome.text, 0) == R"("a \"pen\"")");
    CHECK(answerTo("get", "documents", outcome.text, 1) ==
          R"({"id":7,"lines":[{"article":"a \"pen\""},)"
          R"({"article":"ink","price":4.5}],"two words":null})");
    CHECK(answerTo("get", "documents", outcome.text, 2) == "4.5");
    CHECK(answerTo("same", "documents", outcome.text, 0) == "they are equal");
    CHECK(answerTo("same", "documents", outcome.text, 1) == "they are equal");
    const std::string bug = "b: Bug '', priority 3, due 2024-2-29 12:00:00";
    CHECK(answerTo("edit", "objects", outcome.text, 1) == bug + ", of Ada");
    CHECK(answerTo("clear", "objects", outcome.text) == bug);
    // In the text of RFC 4122: 6fa459ea-ee8a-3ca4-894e-db77e160355e
    CHECK(answerTo("name", "uuid", outcome.text) == "ea59a46f-8aee-a43c-894e-db77e160355e");
    CHECK(contains(outcome.text, "version 1, node 00c04fd430c8\n"));
}

TEST_CASE("what documents and objects cannot take is a failed command with a reason, and changes nothing")
{
    const TempDirectory place;
    const std::string document = "documents parse d {\"a\":[{\"b\":1}],\"c\":\"x\"}\n";
    // The deepest documents and objects that there may be go in, are saved, and come back.
    const std::string deep = std::string(1021, '[') + std::string(1021, ']');
    std::string nested = "{\"__class__\":\"Project\"}";
    for (int i = 0; i < 511; ++i)
        nested = "{\"__class__\":\"Project\",\"tasks\":[" + nested + "]}";
    const std::string start = document + "documents set d a[0].b " + deep + "\n! documents set d a[0].b [" +
                              deep + "]\ndocuments save d deep\ndocuments load d deep\n" + document +
                              "objects create b Bug\nobjects create p Project\nobjects read deep " + nested +
                              "\nobjects clone deep deeper\n! objects edit p tasks [" + nested + "]\n";
    const Refusal rows[] = {
        {"documents parse d {} []", "more than one JSON value: '[]'"},
        {"documents get d c[0]", "'c' is no array"},
        {"documents get d a[-1]", "'a[-1]' begins with no path"},
        {"documents load d cloud://x", "cannot open 'cloud://x': no such archive"},
        {"documents save d memory://x", "is a URL"},
        {"uuid show 10b8a76b-ad9d-d111-80b4-00c04fd430c", "is no uuid"},
        {"objects edit b tail 1", "tail is no property"},
        {"objects edit b __class__ \"Task\"", "__class__ is not the class"},
        {"objects edit b priority 99999999999", "the library reports: uintValue out of Int32 range"},
        {"objects edit b due \"soon\"",
         "the library reports: void convertPropertyToClass(JsonValue const &,Time &)"},
        {"objects edit b owner {\"__class__\":\"Bug\"}", "the library reports: Error attribute implement. "},
        {"objects clear b due", "'due' is no property that holds one object"},
        {"objects read x {\"__class__\":\"Bug\",\"owner\":{\"name\":\"Bob\"}}",
         "owner names no object that fits"},
    };
    checkRefusals(place, start, rows);

    const Outcome outcome =
        run(place, document + "! documents set d a[7] 1\ndocuments get d .\nobjects create b Bug\n"
                              "objects save b before\n! objects edit b due \"soon\"\nobjects save b after\n"
                              "documents same before after\n");
    CHECK(answerTo("get", "documents", outcome.text) == R"({"a":[{"b":1}],"c":"x"})");
    CHECK(answerTo("same", "documents", outcome.text) == "they are equal");
}

TEST_CASE("a configuration says which applications start")
{
    const TempDirectory place;
    const struct {
        const char* text;
        int status;
        const char* answer;
    } rows[] = {
        {"[other]\na = b\n[AppHost]\n apps = clock fast\nfast=counter 7\n# x\nclock = time Etc/GMT-8\n", 0,
         "host      clock, kind time\nhost      fast, kind counter\n"},
        {"", 2, "no names under the key 'apps'"},
        {"[apphost]\napps = a b-c\n", 2, "letters, digits and _ alone, not as here: -c"},
        {"[apphost]\napps = a A\na = time\n", 2, "has the name 'A' twice"},
        {"[apphost]\napps = a b\na = time\n", 2, "no line 'b = KIND'"},
        {"[apphost]\napps = b\nb = counter soon\n", 2,
         "no application of the kind 'counter' with these parameters"},
    };
    for (const auto& row : rows) {
        CAPTURE(row.text);
        write(place / "conf", row.text);
        const Outcome outcome = run(place, "apps\n", {"--config", "conf"});
        CAPTURE(outcome.text);
        CHECK(outcome.status == row.status);
        CHECK(contains(outcome.text, row.answer));
    }
    const Outcome outcome = run(place, "", {"--config", "none"});
    CHECK(outcome.status == 2);
    CHECK(contains(outcome.text, "cannot open 'none': ENOENT"));
}
