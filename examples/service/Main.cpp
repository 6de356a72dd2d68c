/** A daemon that hosts some small applications, and all that an administrator does with it: see --help. */

#include "Daemon.h"
#include "Talk.h"

#include <orvi/core/Directory.h>
#include <orvi/core/Encoding.h>
#include <orvi/core/Log.h>
#include <orvi/core/Service.h>

#include <algorithm>
#include <cstdio>
#include <string>
#include <string_view>

#include <sys/stat.h>

using orvi::Handle_T;
using orvi::String;
using orvi::StringHelper;

namespace {

constexpr char usage[] = R"(usage: service install NAME | remove NAME
       service [run] [socket=PATH] [patience=MS]
       service talk PATH COMMAND

  install   install this program as the service NAME, which starts with the
            system and answers at /run/NAME.sock
  remove    remove that service again; stop it before
  run       run in the foreground until Ctrl-C and answer at the socket PATH,
            else at ./service.sock; without the word it is the same, and the way
            in which the service manager starts it. A client that takes longer
            than MS milliseconds (30000) for a line, or to read what is written
            to it, is sent away, so that nobody keeps the others out
  talk      send one command and print the answer: "counter start",
            "counter count", "time now", "uuid new"..., or "quit", which ends the
            daemon. The applications are some of apphost's: "counter help"
)";

enum Status { fine = 0, failed = 1, wrongCall = 2 };

/** The log goes where the service manager collects it. */
class LogPrinter final : public orvi::LogListener {
public:
    LogPrinter() { orvi::Log::addListener(this); }
    ~LogPrinter() override { orvi::Log::removeListener(this); }
    LogPrinter(const LogPrinter&) = delete;
    LogPrinter& operator=(const LogPrinter&) = delete;

    const wchar_t* getName() override { return L"printer"; }
    bool setparam(const wchar_t*) override { return false; }
    void error(const wchar_t* text) override { print("error", text); }
    void warning(const wchar_t* text) override { print("warning", text); }
    void message(const wchar_t* text) override { print("message", text); }
    void debug(const wchar_t*) override {}
    void whistle(bool) override {}

private:
    static void print(const char* level, const wchar_t* text)
    {
        std::fprintf(stderr, "service: %s: %s\n", level, StringHelper::wideToUtf8(text).getBuffer());
    }
};

/** The name becomes part of a path as well. */
bool isServiceName(std::string_view name)
{
    return !name.empty() && std::all_of(name.begin(), name.end(), [](char ch) {
        return (ch >= 'a' && ch <= 'z') || (ch >= '0' && ch <= '9') || ch == '-';
    });
}

int installService(const std::string& name)
{
    const String commandLine =
        L"\"" + orvi::getAppName() + L"\" socket=/run/" + StringHelper::utf8ToWide(name.c_str()) + L".sock";
    const bool installed =
        orvi::serviceInstall(1, StringHelper::utf8ToWide(name.c_str()), L"Counter, time and uuids",
                             commandLine, nullptr, nullptr) == 1;
    return installed ? fine : failed;
}

int removeService(const std::string& name)
{
    return orvi::serviceRemove(StringHelper::utf8ToWide(name.c_str())) == 1 ? fine : failed;
}

int run(int argc, char** argv)
{
    const LogPrinter printer;
    umask(0077); // the socket is for the daemon's own user
    const Handle_T<service::Daemon> daemon = new service::Daemon;
    orvi::ServiceSystem::setSystemName(L"service");
    const int status = orvi::ServiceSystem::launch(argc, argv, daemon, L"1.0");
    return status == fine && !daemon->hasFailed() ? fine : failed;
}

} // namespace

int main(int argc, char** argv)
{
    const std::string_view word = argc > 1 ? argv[1] : "run";
    if (word == "talk" && argc == 4)
        return service::talk(argv[2], argv[3]);
    if (word == "install" && argc == 3 && isServiceName(argv[2]))
        return installService(argv[2]);
    if (word == "remove" && argc == 3 && isServiceName(argv[2]))
        return removeService(argv[2]);
    if (word == "run" || word.starts_with("socket=") || word.starts_with("patience="))
        return run(argc, argv);
    const bool asked = word == "--help";
    std::fputs(usage, asked ? stdout : stderr);
    return asked ? fine : wrongCall;
}
