#include "Side.h"

#include "Connection.h"
#include "Status.h"

#include <orvi/core/Encoding.h>
#include <orvi/core/Exception.h>

#include <csignal>
#include <cstdio>
#include <exception>

namespace exchange {

namespace {

orvi::String_T<char> shown(const orvi::String& text) { return orvi::StringHelper::wideToUtf8(text); }

int statusOf(const orvi::Exception& exception)
{
    return exception.code() == peerGone || exception.code() == peerWrong ? exception.code() : ownFailure;
}

} // namespace

int run(int argc, char** argv, std::unique_ptr<Side> (*makeSide)(const Options& options))
{
    Options options;
    if (!parseOptions(argc, argv, options)) {
        std::fputs(usage, stderr);
        return ownFailure;
    }
    if (options.help) {
        std::fputs(usage, stdout);
        return allRight;
    }
    std::signal(SIGPIPE, SIG_IGN);
    int status = allRight;
    std::unique_ptr<Side> side; // once there is a connection
    try {
        Link link(connect(options));
        side = makeSide(options);
        side->talk(link);
    } catch (const orvi::Exception& exception) {
        std::fprintf(stderr, "%s: %s\n", argv[0], shown(exception.description()).getBuffer());
        status = statusOf(exception);
    } catch (const std::exception& exception) {
        std::fprintf(stderr, "%s: %s\n", argv[0], exception.what());
        status = ownFailure;
    }
    std::FILE* out = options.way == Way::StandardIO ? stderr : stdout;
    if (side != nullptr)
        std::fprintf(out, "%s\n", shown(side->result()).getBuffer());
    return status;
}

} // namespace exchange
