/** Applications inside one process, and a command line over them: see --help. */

#include "Apps.h"
#include "Config.h"
#include "Host.h"
#include "Interrupt.h"
#include "LogPrinter.h"

#include <orvi/core/CrashReporter.h>
#include <orvi/core/Encoding.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

namespace {

constexpr char usage[] = R"(usage: apphost [--bare | --config FILE] [--log] [SCRIPT]

Runs eight small applications, each on a thread of its own, and passes lines to
them as commands. The lines come from the file SCRIPT or else from the standard
input, be it a terminal or a pipe. Try "time now", "files help" or "help".

  --bare         start no application: "start KIND" does
  --config FILE  start the applications that the file names; it may be another
                 archive URL as well
  --log          show the library's log on the standard error output
  --help         show this text

The exit status is 0 when all commands did what they should, 1 when one failed,
2 for a wrong call of this program or a wrong configuration.
)";

enum Status { allFine = 0, someFailed = 1, wrongStart = 2 };

struct Options {
    bool help = false;
    bool bare = false;
    bool log = false;
    const char* config = nullptr;
    const char* script = nullptr;
};

/** False for a wrong call. */
bool parseOptions(int argc, char** argv, Options& options)
{
    for (int i = 1; i < argc; ++i) {
        const std::string_view argument = argv[i];
        if (argument == "--help" || argument == "-h")
            options.help = true;
        else if (argument == "--bare")
            options.bare = true;
        else if (argument == "--log")
            options.log = true;
        else if (argument == "--config" && options.config == nullptr && i + 1 < argc)
            options.config = argv[++i];
        else if (argument.starts_with("-") || options.script != nullptr)
            return false;
        else
            options.script = argv[i];
    }
    return !options.bare || options.config == nullptr;
}

bool readStarts(const char* config, std::vector<apphost::Start>& starts)
{
    orvi::String reason;
    if (apphost::readConfig(orvi::StringHelper::utf8ToWide(config), starts, reason))
        return true;
    std::fprintf(stderr, "apphost: configuration: %s\n", orvi::StringHelper::wideToUtf8(reason).getBuffer());
    return false;
}

} // namespace

int main(int argc, char** argv)
{
    orvi::handled_exception_filter();
    Options options;
    if (!parseOptions(argc, argv, options)) {
        std::fputs(usage, stderr);
        return wrongStart;
    }
    if (options.help) {
        std::fputs(usage, stdout);
        return allFine;
    }
    int input = 0;
    if (options.script != nullptr)
        input = open(options.script, O_RDONLY | O_CLOEXEC);
    if (input < 0) {
        std::fprintf(stderr, "apphost: cannot open '%s': %s\n", options.script, std::strerror(errno));
        return wrongStart;
    }

    tzset(); // the library leaves the choice of a time zone to the program
    apphost::catchInterrupts();
    std::optional<apphost::LogPrinter> log;
    if (options.log)
        log.emplace();
    for (const apphost::AppKind& kind : apphost::appKinds())
        orvi::setUpApp(kind.name, kind.factory);

    std::vector<apphost::Start> starts;
    if (options.config != nullptr && !readStarts(options.config, starts))
        return wrongStart;
    if (options.config == nullptr && !options.bare) {
        for (const apphost::AppKind& kind : apphost::appKinds())
            starts.push_back({kind.name, kind.name, L""});
    }
    const orvi::Handle_T<apphost::Host> host = new apphost::Host(std::move(starts), input);
    host->load();
    host->start();
    if (!host->hasStarted()) {
        std::fputs("apphost: not all applications start\n", stderr);
        return wrongStart;
    }
    return host->allFine() ? allFine : someFailed;
}
