#pragma once
#include <cstdint>

namespace exchange {

enum class Way { None, StandardIO, Listen, Connect };

struct Options {
    bool help = false;
    Way way = Way::None;
    const char* path = nullptr; // of the socket
    int piece = 65536;
    std::int64_t count = 1'000'000;
    int batch = 64;
};

extern const char usage[];

/** False for a wrong call. */
bool parseOptions(int argc, char** argv, Options& options);

} // namespace exchange
