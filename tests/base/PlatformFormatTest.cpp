#include "WideUnits.h"
#include "platform/base/Format.h"

#include <doctest/doctest.h>
#include <orvi/core/Encoding.h>

#include <algorithm>
#include <climits>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <limits>
#include <string>
#include <type_traits>

namespace {

using namespace orvi::platform;

template <class T>
using Text = std::conditional_t<std::is_same_v<T, wchar_t>, Wide, std::string>;

/** Formats into a buffer of exactly the measured size, and checks some smaller ones. */
template <class T>
Text<T> formatted(const T* format, ...)
{
    std::va_list arguments;
    va_start(arguments, format);
    const std::size_t size = formatText<T>(nullptr, 0, format, arguments);
    std::vector<T> whole(size + 1, T('#'));
    CHECK(formatText(whole.data(), size, format, arguments) == size);
    CHECK(whole[size] == T('#'));
    for (const std::size_t capacity : {std::size_t(0), size / 3, size / 2, size - (size != 0)}) {
        std::vector<T> cut(capacity + 1, T('#'));
        CHECK(formatText(cut.data(), capacity, format, arguments) == size);
        CHECK(cut[capacity] == T('#'));
        const auto unwritten = std::mismatch(cut.begin(), cut.end(), whole.begin()).first;
        CHECK(std::all_of(unwritten, cut.end(), [](T element) { return element == 0 || element == '#'; }));
    }
    va_end(arguments);
    return {whole.begin(), whole.end() - 1};
}

const unsigned char* ansi(const char* format) { return reinterpret_cast<const unsigned char*>(format); }

template <class... Arguments>
void compareOne(const std::string& format, Arguments... arguments)
{
    CAPTURE(format);
    char expected[30000];
    std::snprintf(expected, sizeof expected, format.c_str(), arguments...);
    CHECK(formatted(format.c_str(), arguments...) == expected);
}

template <class T>
void compareWithSystem(const std::string& length, const char* conversions, const std::vector<T>& values)
{
    for (const char* conversion = conversions; *conversion; ++conversion)
        for (const char* flags : {"", "-", "+", "0", "#", "#0", "-0", "+ 0", "-#+", "# "})
            for (const char* size :
                 {"", "1", "12", "40", ".", ".0", ".1", ".5", ".17", ".30", "12.4", "40.25"})
                for (const T value : values)
                    compareOne(std::string("%") + flags + size + length + *conversion, value);
}

} // namespace

#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#pragma GCC diagnostic ignored "-Wformat-security"

TEST_CASE("integers print as the system prints them")
{
    compareWithSystem<int>("", "diuoxX", {0, 1, -1, 8, 123456, INT_MAX, INT_MIN});
    compareWithSystem<int>("hh", "dx", {0, 127, 128, -1, 300});
    compareWithSystem<int>("h", "du", {0, 32767, 32768, -1, 70000});
    compareWithSystem<long>("l", "iu", {0, -1, LONG_MAX, LONG_MIN});
    compareWithSystem<long long>("ll", "do", {LLONG_MAX, LLONG_MIN});
    compareWithSystem<std::intmax_t>("j", "du", {INTMAX_MIN});
    compareWithSystem<std::ptrdiff_t>("t", "d", {-1});
    compareWithSystem<std::size_t>("z", "u", {SIZE_MAX});
}

TEST_CASE("floating point numbers print as the system prints them")
{
    using Limits = std::numeric_limits<double>;
    constexpr double tiny = Limits::denorm_min(), big = Limits::max(), infinite = Limits::infinity();
    compareWithSystem<double>("", "eEfFgG", {0.0,       -0.0, -1.5,          2.5,       9.995,
                                             9.9999995, 0.1,  1e-4,          9.9e-5,    0.000099999995,
                                             1e6,       1e16, 123456789.125, 1e23,      -1e-100,
                                             tiny,      big,  infinite,      -infinite, Limits::quiet_NaN()});
    // Normalised values and zero only: where the leading hexadecimal digit is free, ours is 1.
    compareWithSystem<double>("", "aA", {0.0, 1.0, -1.5, 0.1, 1e100, big, infinite});
    compareWithSystem<long double>("L", "eFgG", {0.0L, -2.5L, 0.1L, 1e-4000L, 1.1L, 1e400L});

    CHECK(formatted("%a", 1.5) == "0x1.8p+0");
    for (const char* format : {"%.1500f", "%.1200e", "%#.1200g"})
        compareOne(format, tiny);
    compareOne("%#.1200g", 5e-5);
    compareOne("%.4000Lf", 1e4900L); // needs the large buffer
    compareOne("%.16490Lf", 1e-4940L);
    CHECK(formatted("%.100000f", 1.25) == "1.25" + std::string(99998, '0'));
    CHECK(formatted("%.*a", 40, 1.5) == "0x1.8" + std::string(39, '0') + "p+0");
}

TEST_CASE("conventions of Windows' runtime library")
{
    CHECK(formatted("%I32d %I64d %Id %I64x", -1, -2LL, std::ptrdiff_t(-3), 0x123456789ALL) ==
          "-1 -2 -3 123456789a");
    CHECK(formatted("%wd", -5) == "-5");
    const auto pointer = reinterpret_cast<void*>(std::uintptr_t(0xABCDEF12));
    CHECK(formatted("%p|%20p|%-18p|%#+p", pointer, pointer, pointer, nullptr) ==
          "00000000ABCDEF12|    00000000ABCDEF12|00000000ABCDEF12  |0000000000000000");
    CHECK(formatted("%#p|%#20p|%-#20p|", pointer, pointer, pointer) ==
          "0X00000000ABCDEF12|  0X00000000ABCDEF12|0X00000000ABCDEF12  |");
    int untouched = 5;
    CHECK(formatted("a%nb%d", &untouched, 7) == "ab7");
    CHECK(untouched == 5);
    CHECK(formatted("100%% %y %-5.3lk %") == "100% %y %-5.3lk %");
    CHECK(formatted("%5%|%ll") == "%|%ll");
    CHECK(formatted("%*d|%-*d|%.*d|%*d", 4, 1, 4, 2, -1, 3, -4, 4) == "   1|2   |3|4   ");
    CHECK(formatted("%05s|%-05s", "ab", "ab") == "000ab|ab   ");
}

TEST_CASE("text arguments in a wide format")
{
    CHECK(formatted(L"[%s|%S|%hs|%ls|%ws|%lS|%hS|%Ls|%LS]", L"w\u20AC", "n\xE2\x82\xAC", "h", L"l", L"x",
                    L"y", "z", L"L", "M") == wide(L"[w\u20AC|n\u20AC|h|l|x|y|z|L|M]"));
    CHECK(formatted(L"%c%C%hc%lc%5c|%-3c|", 0x20AC, 'n', 'h', L'l', L'r', L'f') ==
          wide(L"\u20ACnhl    r|f  |"));
    CHECK(formatted(L"%c", 0) == Wide(1, 0));
    CHECK(formatted(L"%5s|%-5S|%.2s|%.3S|", L"ab", "\xC3\xA9", L"abc", "ab\xC3\xA9") ==
          wide(L"   ab|\u00E9    |ab|ab\uFFFD|"));
    CHECK(formatted(L"%s%S%.3s", nullptr, nullptr, nullptr) == wide(L"(null)(null)(nu"));
    CHECK(formatted(L"%d %.2f %x %I64d", -7, 1.005, 255u, 1LL << 40) == wide(L"-7 1.00 ff 1099511627776"));
}

TEST_CASE("text arguments in narrow formats")
{
    CHECK(formatted("%hS|%lS|%ws|%Ls|%LS", "h", L"l", L"w", "L", L"M") == "h|l|w|L|M");
    CHECK(formatted("[%s|%S|%hs|%ls|%6S|%-6ls|]", "n\xE2\x82\xAC", L"w\u20AC", "h", L"l", L"\u20AC",
                    L"\U0001F600") ==
          "[n\xE2\x82\xAC|w\xE2\x82\xAC|h|l|   \xE2\x82\xAC|\xF0\x9F\x98\x80  |]");
    CHECK(formatted("%c%C%lc", 'a', 0x20AC, 0xE9) == "a\xE2\x82\xAC\xC3\xA9");
    CHECK(formatted("%.1S%.1S|", L"\U0001F600", L"xy") == "\xEF\xBF\xBDx|");
    CHECK(formatted(ansi("%s %S %C"), "\xE9", L"\u20AC\u0100", 0xE9) == "\xE9 \x80? \xE9");
    orvi::setCodePage(932);
    CHECK(formatted(ansi("%s|%5S|"), "\x82\xA0", L"\u3042") == "\x82\xA0|   \x82\xA0|");
    orvi::setCodePage(12345);
    CHECK(formatted(ansi("%s|%3S|"), "a", L"a") == "a|   |"); // nothing can be converted
    orvi::setCodePage(0);
}

TEST_CASE("a precision keeps a text from being read beyond it")
{
    const std::vector<char> bytes = {'a', 'b', 'c'}; // no terminator: the address sanitizer watches
    const std::vector<wchar_t> units = {L'a', L'b', L'c'};
    CHECK(formatted("%.3s%.3S%.*s", bytes.data(), units.data(), 0, nullptr) == "abcabc");
    CHECK(formatted(L"%.3s%.3S", units.data(), bytes.data()) == wide(L"abcabc"));
    const std::vector<char> half = {'a', '\xE2', '\x82'};
    CHECK(formatted(L"%.3S", half.data()) == Wide{L'a', 0xFFFD});
}

TEST_CASE("wide text of any length and alignment")
{
    for (std::size_t start = 0; start < 16; ++start)
        for (std::size_t length = 0; length < 40 - start; ++length) {
            const Wide expected(length, L'x');
            Wide text(start + length, L'x');
            text.insert(text.end(), {L'%', L'd', 0});
            const wchar_t* const begin = text.data() + start;
            CHECK(formatted(begin, 7).size() == length + 1);
            CHECK(formatted(L"%.*s", int(length), begin) == expected);
            text[start + length] = 0;
            CHECK(formatted(L"%s", begin) == expected);
            CHECK(formatted(begin) == expected);
        }
}

TEST_CASE("large texts and sizes")
{
    Wide big(300000, L'w');
    big.push_back(0);
    CHECK(formatted("%S%S", big.data(), big.data()) == std::string(600000, 'w'));
    CHECK(formatted(L"<%s>", big.data()).size() == 300002);
    const auto measured = [](const char* format, ...) {
        std::va_list arguments;
        va_start(arguments, format);
        const std::size_t size = formatText<char>(nullptr, 0, format, arguments);
        va_end(arguments);
        return size;
    };
    CHECK(measured("%99999999999999999999d%2147483647s", 1, "") == 2 * std::size_t(INT_MAX));
    CHECK(measured("%*d", INT_MIN, 1) == std::size_t(INT_MAX));
    CHECK(measured("%.2147483647f", 1.0) == std::size_t(INT_MAX) + 2);
    CHECK(measured("%#.2147483647g", 1.0) == std::size_t(INT_MAX) + 1);
    CHECK(measured("%#.2147483647g", 1e-4) == std::size_t(INT_MAX) + 5);
    CHECK(measured("%.2147483647d", -1) == std::size_t(INT_MAX) + 1);
}
