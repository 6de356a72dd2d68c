#pragma once
#include "AsciiRun.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>

namespace orvi::platform {

/** One character, converted. */
template <class Target>
struct Step {
    static constexpr unsigned bits = 8 * sizeof(Target);

    std::size_t consumed; // source elements, at least 1
    std::size_t produced; // target elements, at most 4
    // A number and not an array: it stays in a register, which makes text that is not ASCII some 1.5 times as
    // fast.
    std::uint64_t elements; // the first one lowest

    template <class... Elements>
    static Step make(std::size_t consumed, Elements... elements)
    {
        unsigned shift = 0;
        std::uint64_t all = 0;
        ((all |= std::uint64_t(Target(elements)) << shift, shift += bits), ...);
        return {consumed, sizeof...(elements), all};
    }

    Target element(std::size_t index) const { return Target(elements >> bits * index); }
};

/** The number of elements that `source` gives. `codec(source, size)` converts its first character. */
template <class Source, class Codec>
std::size_t measureText(const Source* source, std::size_t size, const Codec& codec)
{
    std::size_t at = 0;
    std::size_t total = 0;
    while (at < size) {
        const std::size_t ascii = asciiLength(source + at, size - at);
        at += ascii;
        total += ascii;
        while (at < size && !isAscii(source[at])) {
            const auto step = codec(source + at, size - at);
            at += step.consumed;
            total += step.produced;
        }
    }
    return total;
}

/** Converts whole characters as long as they fit; gives the number of elements that all of `source` gives. */
template <class Source, class Target, class Codec>
std::size_t convertText(const Source* source, std::size_t size, Target* target, std::size_t capacity,
                        const Codec& codec)
{
    std::size_t at = 0;
    std::size_t total = 0;
    while (at < size) {
        const std::size_t ascii =
            copyAscii(source + at, std::min(size - at, capacity - total), target + total);
        at += ascii;
        total += ascii;
        if (at == size)
            break;
        do { // an ASCII character comes here only when there is no room for it
            const Step<Target> step = codec(source + at, size - at);
            if (step.produced > capacity - total)
                return total + measureText(source + at, size - at, codec);
            for (std::size_t i = 0; i < step.produced; ++i)
                target[total + i] = step.element(i);
            at += step.consumed;
            total += step.produced;
        } while (at < size && !isAscii(source[at]));
    }
    return total;
}

} // namespace orvi::platform
