#include "ServiceProcess.h"
#include "TextPrinting.h"

#include <fstream>
#include <iterator>
#include <vector>

namespace {

/** Makes the example out of this process, with its output in a file. */
int runExample(const std::vector<std::string>& words, const std::string& outputPath)
{
    std::vector<char*> argv = {const_cast<char*>(ORVI_SERVICE)};
    for (const std::string& word : words)
        argv.push_back(const_cast<char*>(word.c_str()));
    argv.push_back(nullptr);
    const int output = open(outputPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    dup2(output, 1);
    dup2(output, 2);
    execv(ORVI_SERVICE, argv.data());
    return 127;
}

struct Answer {
    int status;
    std::string text;
};

Answer call(const TempDirectory& directory, const std::vector<std::string>& words)
{
    const std::string path = (directory / "answer").string();
    ServiceProcess process("", [&] { return runExample(words, path); });
    const int status = process.wait();
    std::ifstream file(path);
    return {status, {std::istreambuf_iterator<char>(file), {}}};
}

} // namespace

TEST_CASE("the daemon answers while its service manager lets it run")
{
    const TempDirectory directory;
    const NotifySocket manager((directory / "notify").string());
    const std::string socket = (directory / "socket").string();
    const std::string log = (directory / "log").string();
    const auto talk = [&](const char* command) { return call(directory, {"talk", socket, command}); };

    for (const bool quits : {false, true}) {
        ServiceProcess daemon(manager.address(), [&] { return runExample({"socket=" + socket}, log); });
        while (manager.next() != "READY=1\nSTATUS=Running") {
        }
        while (access(socket.c_str(), F_OK) != 0) // the body starts a moment before or behind that
            usleep(1000);
        const struct {
            const char* command;
            int status;
            const char* text;
        } rows[] = {
            {"counter count", 0, "0, stopped\nok\n"},
            {"counter pace 50", 0, "one count every 50 ms\nok\n"},
            {"uuid compare 00000000-0000-0000-0000-000000000000 00000000-0000-0000-0000-000000000001", 0,
             "less\nok\n"},
            {"counter reset\ncounter count", 0, "ok\n0, stopped\nok\n"},
            {"counter add", 1, "no command 'add' here: help lists them\nfailed\n"},
            {"nobody count", 1, "there is no such application\nfailed\n"},
            {"", 1, "there is no such application\nfailed\n"},
        };
        for (const auto& row : rows) {
            CAPTURE(row.command);
            const Answer answer = talk(row.command);
            CHECK(answer.status == row.status);
            CHECK(answer.text == row.text);
        }
        CHECK(talk(std::string(10'000, 'x').c_str()).status == 1);
        CHECK(call(directory, {"run", "socket=" + socket}).status == 1); // taken

        if (quits)
            CHECK(talk("quit").text == "ok\n");
        else
            daemon.kill(SIGTERM);
        CHECK(manager.next().find("STOPPING=1\n") == 0);
        CHECK(daemon.wait() == 0);
        CHECK(access(socket.c_str(), F_OK) != 0);
        CHECK(talk("counter count").status == 1);
        while (manager.next(0) != "(none)") {
        }
    }
}

TEST_CASE("a client has a time for a whole line, and who keeps to it stays")
{
    const TempDirectory directory;
    const std::string path = (directory / "socket").string();
    const ServiceProcess daemon("", [&] {
        return runExample({"socket=" + path, "patience=2000"}, (directory / "log").string());
    });
    const auto connectClient = [&] {
        sockaddr_un name{};
        name.sun_family = AF_UNIX;
        path.copy(name.sun_path, sizeof name.sun_path - 1);
        const int client = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        while (connect(client, reinterpret_cast<sockaddr*>(&name), sizeof name) != 0)
            usleep(1000);
        return client;
    };
    const int slow = connectClient();
    const int prompt = connectClient();
    char bytes[100];
    int answers = 0;
    bool isOut = false;
    for (int i = 0; !isOut && i < 3000; ++i) { // too few bytes for a line that is too long
        isOut = send(slow, "x", 1, MSG_NOSIGNAL) < 0;
        if (i % 10 == 0) {
            REQUIRE(send(prompt, "counter reset\n", 14, MSG_NOSIGNAL) == 14);
            answers += recv(prompt, bytes, sizeof bytes, 0) == 3;
        }
        usleep(10'000);
    }
    CHECK(isOut);
    REQUIRE(send(prompt, "counter reset\n", 14, MSG_NOSIGNAL) == 14);
    CHECK(recv(prompt, bytes, sizeof bytes, 0) == 3);
    CHECK(answers > 1);
    close(slow);
    close(prompt);
}

TEST_CASE("a wrong call is refused, before anything is installed or removed")
{
    const TempDirectory directory;
    const std::vector<std::string> calls[] = {{"install"},     {"install", "../name"}, {"remove", "a b"},
                                              {"install", ""}, {"talk", "path"},       {"nonsense"}};
    for (const auto& words : calls)
        CHECK(call(directory, words).status == 2);
}
