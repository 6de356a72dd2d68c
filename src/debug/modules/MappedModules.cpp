#include "MappedModules.h"

#include "DebugFiles.h"
#include <algorithm>
#include <charconv>
#include <string_view>

namespace orvi::debug {

bool MappedModules::next()
{
    while (_isMappingLeft || _maps.next(_mapping)) {
        _isMappingLeft = false;
        if (!begins(_mapping))
            continue;
        bool isExecutable = _mapping.executable;
        while ((_isMappingLeft = _maps.next(_mapping)) && (_mapping.path.empty() || continues(_mapping)))
            isExecutable |= !_mapping.path.empty() && _mapping.executable;
        // Files that are mapped only to be read, as libelf does, are no modules.
        if (isExecutable)
            return true;
    }
    return false;
}

bool MappedModules::begins(const Mapping& mapping)
{
    const bool isFile = mapping.path.starts_with('/') && !mapping.path.starts_with("/dev/");
    if ((!isFile && mapping.path != kernelPageName) || mapping.path.size() >= sizeof _path ||
        !_image.read(mapping))
        return false;
    _path[mapping.path.copy(_path, sizeof _path - 1)] = '\0';
    return true;
}

bool MappedModules::continues(const Mapping& mapping) const
{
    return mapping.path == _path && mapping.start < _image.end() &&
           (mapping.offset != 0 || _image.mapsFirstPageAt(mapping.start));
}

void MappedModules::version(std::span<unsigned int, 4> numbers) const
{
    std::ranges::fill(numbers, 0);
    constexpr std::string_view mark = ".so.";
    std::string_view name(_path);
    name.remove_prefix(name.rfind('/') + 1); // npos + 1: the whole name
    const std::size_t place = name.rfind(mark);
    if (place == std::string_view::npos)
        return;
    const char* digits = name.data() + place + mark.size();
    const char* const end = name.data() + name.size();
    for (unsigned int& number : numbers) {
        const auto [behind, error] = std::from_chars(digits, end, number);
        if (error != std::errc() || behind == end || *behind != '.')
            return;
        digits = behind + 1;
    }
}

} // namespace orvi::debug
