#include "ServiceProcess.h"
#include "TextPrinting.h"

#include <fstream>
#include <iterator>

namespace {

/** Makes the example out of this process, with its output in a file. */
int runExample(const std::vector<std::string>& words, const std::string& outputPath)
{
    const int output = open(outputPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    dup2(output, 1);
    dup2(output, 2);
    return execute(ORVI_SERVICE, words);
}

} // namespace

TEST_CASE("the daemon answers while its service manager lets it run")
{
    const TempDirectory directory;
    const NotifySocket manager((directory / "notify").string());
    const std::string path = (directory / "socket").string();
    const std::string output = (directory / "output").string();
    ServiceProcess daemon(manager.address(), [&] {
        return runExample({"socket=" + path, "patience=1000"}, (directory / "log").string());
    });
    CHECK(manager.hears("READY=1\nSTATUS=Running"));

    sockaddr_un name{};
    name.sun_family = AF_UNIX;
    path.copy(name.sun_path, sizeof name.sun_path - 1);
    const int slow = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    while (connect(slow, reinterpret_cast<sockaddr*>(&name), sizeof name) != 0)
        usleep(1000); // the body starts a moment before or behind its report

    // A client has a time for a whole line, however often it sends a byte.
    int bytes = 0;
    for (; send(slow, "x", 1, MSG_NOSIGNAL) == 1 && bytes < 3000;
         ++bytes) // too few for a line that is too long
        usleep(10'000);
    CHECK(bytes < 3000);
    close(slow);

    const std::string refused(10'000, 'x');
    const struct {
        std::vector<std::string> words;
        int status;
        const char* answer;
    } rows[] = {
        {{"talk", path, "counter reset\ncounter count"}, 0, "ok\n0, stopped\nok\n"},
        {{"talk", path, "counter add"}, 1, "no command 'add' here: help lists them\nfailed\n"},
        {{"talk", path, ""}, 1, "there is no such application\nfailed\n"},
        {{"talk", path, refused}, 1, ""},
        {{"run", "socket=" + path}, 1, ""}, // taken
        {{"install"}, 2, "usage: "},
        {{"remove", "a b"}, 2, ""},
        {{"talk", path, "quit"}, 0, "ok\n"},
    };
    for (const auto& row : rows) {
        CAPTURE(row.words.back());
        ServiceProcess process("", [&] { return runExample(row.words, output); });
        CHECK(process.wait() == row.status);
        std::ifstream file(output);
        const std::string text(std::istreambuf_iterator<char>(file), {});
        CAPTURE(text);
        CHECK(text.find(row.answer) == 0);
    }
    CHECK(manager.next().find("STOPPING=1\n") == 0);
    CHECK(daemon.wait() == 0);
    CHECK(access(path.c_str(), F_OK) != 0);
}
