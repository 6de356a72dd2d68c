#include "ProcessMaps.h"

#include <charconv>
#include <cstring>
#include <span>

namespace orvi::debug {
namespace {

// Takes a hexadecimal number and the character behind it off the front of `line`.
template <class Number>
bool takeNumber(std::string_view& line, char behind, Number& number)
{
    const auto [end, error] = std::from_chars(line.data(), line.data() + line.size(), number, 16);
    const auto length = static_cast<std::size_t>(end - line.data());
    if (error != std::errc() || length == line.size() || *end != behind)
        return false;
    line.remove_prefix(length + 1);
    return true;
}

// "start-end rwxp offset device inode   path"
bool parse(std::string_view line, Mapping& mapping)
{
    constexpr std::size_t accessLength = 5; // "rwxp "
    if (!takeNumber(line, '-', mapping.start) || !takeNumber(line, ' ', mapping.end) ||
        line.size() < accessLength)
        return false;
    mapping.readable = line[0] == 'r';
    mapping.writable = line[1] == 'w';
    mapping.executable = line[2] == 'x';
    line.remove_prefix(accessLength);
    if (!takeNumber(line, ' ', mapping.offset))
        return false;
    const std::size_t path = line.find_first_of("/[");
    mapping.path = path == std::string_view::npos ? std::string_view() : line.substr(path);
    return true;
}

} // namespace

bool ProcessMaps::next(Mapping& mapping)
{
    for (std::string_view line; nextLine(line);) {
        if (parse(line, mapping))
            return true;
    }
    return false;
}

bool ProcessMaps::nextLine(std::string_view& line)
{
    for (;;) {
        const std::string_view rest(_buffer + _taken, _filled - _taken);
        if (const std::size_t length = rest.find('\n'); length != std::string_view::npos) {
            line = rest.substr(0, length);
            _taken += length + 1;
            return true;
        }
        std::memmove(_buffer, rest.data(), rest.size());
        _taken = 0;
        _filled = rest.size();
        const std::size_t count = _file.read(std::span(_buffer).subspan(_filled));
        if (count == 0)
            return false;
        _filled += count;
    }
}

} // namespace orvi::debug
