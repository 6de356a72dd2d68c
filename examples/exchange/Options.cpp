#include "Options.h"

#include <charconv>
#include <limits>
#include <string_view>

namespace exchange {

const char usage[] = R"(usage: exchange_send    --listen PATH | --connect PATH | --stdio [OPTION ...]
       exchange_receive --listen PATH | --connect PATH | --stdio [OPTION ...]

Two processes that exchange messages: one sends numbered items, the other one
checks that none is missing, and confirms them. For example:

  exchange_receive --listen /tmp/meet &
  exchange_send --connect /tmp/meet

  mkfifo there back
  exchange_receive --stdio < there > back &
  exchange_send --stdio > there < back

  --listen PATH   make the Unix socket PATH and wait for the other one there;
                  PATH goes away when it has come
  --connect PATH  go where the other one listens
  --stdio         speak on the standard input and output, which must be no
                  terminals; results go to the standard error output
  --piece BYTES   move at most so many bytes at a time, as a slow line does
  --count N       how many items exchange_send sends, 1000000 by default
  --batch N       how many items it puts into a packet, 64 by default
  --help          show this text

The exit status is 0 when all items were sent, received and confirmed; 1 for a
wrong call and when there is no connection; 2 when the peer has gone too early;
3 when it sent what it should not.
)";

namespace {

template <class T>
bool parseNumber(std::string_view text, T least, T most, T& number)
{
    const char* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    return error == std::errc() && stop == end && number >= least && number <= most;
}

bool choose(Options& options, Way way, const char* path)
{
    const bool first = options.way == Way::None;
    options.way = way;
    options.path = path;
    return first;
}

/** An option with a value. */
bool parsePair(std::string_view name, const char* value, Options& options)
{
    if (name == "--listen")
        return choose(options, Way::Listen, value);
    if (name == "--connect")
        return choose(options, Way::Connect, value);
    if (name == "--piece")
        return parseNumber(value, 1, std::numeric_limits<int>::max(), options.piece);
    if (name == "--count")
        return parseNumber<std::int64_t>(value, 0, std::numeric_limits<std::int64_t>::max(), options.count);
    return name == "--batch" && parseNumber(value, 1, 10'000, options.batch);
}

} // namespace

bool parseOptions(int argc, char** argv, Options& options)
{
    for (int i = 1; i < argc; ++i) {
        const std::string_view argument = argv[i];
        if (argument == "--help") {
            options.help = true;
            return true;
        }
        if (argument == "--stdio") {
            if (!choose(options, Way::StandardIO, nullptr))
                return false;
        } else if (++i == argc || !parsePair(argument, argv[i], options)) {
            return false;
        }
    }
    return options.way != Way::None;
}

} // namespace exchange
