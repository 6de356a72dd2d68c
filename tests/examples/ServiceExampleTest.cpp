#include "Program.h"
#include "TextPrinting.h"

TEST_CASE("the daemon answers while its service manager lets it run")
{
    const TempDirectory directory;
    const NotifySocket manager;
    const std::string path = (directory / "socket").string();
    ServiceProcess daemon(manager.address(), [&] { return execute(ORVI_SERVICE, {"socket=" + path}); });
    CHECK(manager.hears("READY=1\nSTATUS=Running"));

    sockaddr_un name{AF_UNIX, {}};
    path.copy(name.sun_path, sizeof name.sun_path - 1);
    const int client = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    while (connect(client, reinterpret_cast<sockaddr*>(&name), sizeof name) != 0)
        usleep(1000); // the body starts a moment before or behind its report
    close(client);

    const struct {
        std::vector<std::string> words;
        int status;
        const char* answer;
    } rows[] = {
        {{"talk", path, "counter reset\ncounter count"}, 0, "ok\n0, stopped\nok\n"},
        {{"talk", path, "counter add"}, 1, "no command 'add' here: help lists them\nfailed\n"},
        {{"talk", path, std::string(10'000, 'x')}, 1, ""},
        {{"run", "socket=" + path}, 1, ""}, // taken
        {{"install"}, 2, "usage: "},
        {{"talk", path, "quit"}, 0, "ok\n"},
    };
    for (const auto& row : rows) {
        CAPTURE(row.words.back());
        const Outcome outcome = Program(ORVI_SERVICE, row.words).finish();
        CAPTURE(outcome.text);
        CHECK(outcome.status == row.status);
        CHECK(outcome.text.find(row.answer) == 0);
    }
    CHECK(manager.next().find("STOPPING=1\n") == 0);
    CHECK(daemon.wait() == 0);
    CHECK(access(path.c_str(), F_OK) != 0);
}
