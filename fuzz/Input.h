#pragma once
#include <orvi/core/Encoding.h>
#include <orvi/core/String.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

/** The one function of a fuzzer. */
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace fuzz {

/** Stops at a promise that was not kept; the fuzzer then shows the stack and saves the input. */
inline void expect(bool kept, const char* promise)
{
    if (kept)
        return;
    std::fprintf(stderr, "broken promise: %s\n", promise);
    std::abort();
}

/** The bytes that a fuzzer made up, taken from the front. Borrows them. */
class Input {
public:
    Input(const std::uint8_t* data, std::size_t size)
        : _data(data)
        , _size(size)
    {}

    std::size_t size() const { return _size; }
    const std::uint8_t* data() const { return _data; }

    /** 0 when there is none left. */
    std::uint8_t takeByte() { return _size > 0 ? *skip(1) : std::uint8_t{0}; }

    /** A value of bytes that mean something whatever they are; what is missing is 0. */
    template <class Value>
    Value take()
    {
        Value value{};
        const std::size_t size = _size < sizeof value ? _size : sizeof value;
        if (size > 0)
            std::memcpy(&value, skip(size), size);
        return value;
    }

    /** All that is left as text. Its first byte chooses: with an even one the others are UTF-8, which the library
        converts, and readable in a corpus; with an odd one they are UTF-16 units, NULs and halves of pairs
        included. A String's block ends with its terminator, so a sanitizer sees who reads on. */
    orvi::String takeText()
    {
        const bool isUnits = takeByte() % 2 != 0;
        const std::size_t bytes = _size;
        const std::uint8_t* rest = skip(bytes);
        if (!isUnits)
            return orvi::StringHelper::utf8ToWide(std::string(rest, rest + bytes).c_str());
        std::vector<wchar_t> units(bytes / sizeof(wchar_t));
        if (!units.empty())
            std::memcpy(units.data(), rest, units.size() * sizeof(wchar_t));
        return orvi::String(units.data(), static_cast<int>(units.size()));
    }

private:
    const std::uint8_t* skip(std::size_t size)
    {
        const std::uint8_t* front = _data;
        _data += size;
        _size -= size;
        return front;
    }

    const std::uint8_t* _data;
    std::size_t _size;
};

} // namespace fuzz
