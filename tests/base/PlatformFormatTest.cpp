#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <doctest/doctest.h>
#include <limits>
#include <orvi/core/Export.h>
#include <string>
#include <vector>

#include "WideUnits.h"
#include "platform/base/Format.h"

namespace orvi {

static int currentCodePage = 0;

ORVI_API int getCodePage();
int getCodePage() { return currentCodePage; }

} // namespace orvi

namespace {

using namespace orvi::platform;

/** Formats into a buffer of exactly the measured size, and checks every smaller one. */
template <class T>
std::vector<T> formatted(const T* format, std::va_list arguments)
{
    const std::size_t size = formatText<T>(nullptr, 0, format, arguments);
    std::vector<T> result(size + 1, T('#'));
    CHECK(formatText(result.data(), size, format, arguments) == size);
    CHECK(result[size] == T('#'));
    result.pop_back();
    for (std::size_t capacity = 0; capacity < std::min<std::size_t>(size, 40); ++capacity) {
        std::vector<T> cut(capacity + 1, T('#'));
        CHECK(formatText(cut.data(), capacity, format, arguments) == size);
        CHECK(cut[capacity] == T('#'));
        while (!cut.empty() && (cut.back() == T('#') || cut.back() == 0))
            cut.pop_back();
        CHECK(std::equal(cut.begin(), cut.end(), result.begin()));
    }
    return result;
}

std::string narrow(const char* format, ...)
{
    std::va_list arguments;
    va_start(arguments, format);
    const std::vector<char> text = formatted(format, arguments);
    va_end(arguments);
    return {text.begin(), text.end()};
}

Wide widely(const wchar_t* format, ...)
{
    std::va_list arguments;
    va_start(arguments, format);
    Wide text = formatted(format, arguments);
    va_end(arguments);
    return text;
}

std::string ansi(const char* format, ...)
{
    std::va_list arguments;
    va_start(arguments, format);
    const auto text = formatted(reinterpret_cast<const unsigned char*>(format), arguments);
    va_end(arguments);
    return {text.begin(), text.end()};
}

template <class... Arguments>
std::string bySystem(const std::string& format, Arguments... arguments)
{
    char text[30000];
    const int size = std::snprintf(text, sizeof text, format.c_str(), arguments...);
    REQUIRE(size >= 0);
    REQUIRE(std::size_t(size) < sizeof text);
    return {text, std::size_t(size)};
}

template <class T>
void compareWithSystem(const char* length, const char* conversions, const std::vector<T>& values)
{
    const char* flags[] = {"", "-", "+", " ", "0", "#", "#0", "-0", "+ 0", "-#+", "# "};
    const char* sizes[] = {"", "1", "12", "40", ".", ".0", ".1", ".5", ".17", ".30", "12.4", "40.25"};
    for (const char* conversion = conversions; *conversion; ++conversion)
        for (const char* flag : flags)
            for (const char* size : sizes) {
                std::string format = "%";
                format.append(flag).append(size).append(length).push_back(*conversion);
                for (const T value : values) {
                    const std::string expected = bySystem(format, value);
                    const std::string got = narrow(format.c_str(), value);
                    if (got != expected) {
                        CAPTURE(format);
                        CAPTURE(value);
                        CHECK(got == expected);
                    }
                }
            }
}

} // namespace

#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#pragma GCC diagnostic ignored "-Wformat-security"

TEST_CASE("integers print as the system prints them")
{
    compareWithSystem<int>("", "diuoxX", {0, 1, -1, 7, 8, 123456, INT_MAX, INT_MIN});
    compareWithSystem<int>("hh", "duox", {0, 127, 128, -1, 300});
    compareWithSystem<int>("h", "duX", {0, 32767, 32768, -1, 70000});
    compareWithSystem<long>("l", "iux", {0, -1, LONG_MAX, LONG_MIN});
    compareWithSystem<long long>("ll", "do", {0, -5, LLONG_MAX, LLONG_MIN});
    compareWithSystem<std::intmax_t>("j", "du", {-1, INTMAX_MIN});
    compareWithSystem<std::ptrdiff_t>("t", "d", {-1, 1});
    compareWithSystem<std::size_t>("z", "ux", {0, SIZE_MAX});
}

TEST_CASE("floating point numbers print as the system prints them")
{
    const double tiny = std::numeric_limits<double>::denorm_min();
    const double big = std::numeric_limits<double>::max();
    const double infinite = std::numeric_limits<double>::infinity();
    const std::vector<double> values = {0.0,      -0.0,      1.0,         -1.5, 0.5,           2.5,
                                        9.995,    9.9999995, 0.1,         1e-4, 9.9e-5,        1e-5,
                                        123456.0, 1e6,       1e15,        1e16, 123456789.125, 1e100,
                                        -1e-100,  tiny,      big,         1e23, 5e-324,        0.000099999995,
                                        infinite, -infinite, std::nan("")};
    compareWithSystem<double>("", "eEfFgG", values);
    // Normalised values and zero only: where the leading hexadecimal digit is free, ours is 1.
    compareWithSystem<double>("", "aA", {0.0, 1.0, -1.5, 0.1, 1e100, big, infinite});
    compareWithSystem<long double>("L", "eFgG", {0.0L, -2.5L, 0.1L, 1e-4000L, 1.1L, 1e400L});

    CHECK(narrow("%a", 1.5) == "0x1.8p+0");
    CHECK(narrow("%.1500f", tiny) == bySystem("%.1500f", tiny));
    CHECK(narrow("%.1200e", tiny) == bySystem("%.1200e", tiny));
    CHECK(narrow("%#.1200g", 5e-5) == bySystem("%#.1200g", 5e-5));
    CHECK(narrow("%.4000Lf", 1e4900L) == bySystem("%.4000Lf", 1e4900L)); // needs the large buffer
    CHECK(narrow("%.16490Lf", 1e-4940L) == bySystem("%.16490Lf", 1e-4940L));
    CHECK(narrow("%.100000f", 1.25) == "1.25" + std::string(99998, '0'));
    CHECK(narrow("%.*a", 40, 1.5) == "0x1.8" + std::string(39, '0') + "p+0");
}

TEST_CASE("conventions of Windows' runtime library")
{
    CHECK(narrow("%I32d %I64d %Id %I64x", -1, -2LL, std::ptrdiff_t(-3), 0x123456789ALL) ==
          "-1 -2 -3 123456789a");
    CHECK(narrow("%wd", -5) == "-5");
    const auto pointer = reinterpret_cast<void*>(std::uintptr_t(0xABCDEF12));
    CHECK(narrow("%p|%20p|%-18p|%#+p", pointer, pointer, pointer, nullptr) ==
          "00000000ABCDEF12|    00000000ABCDEF12|00000000ABCDEF12  |0000000000000000");
    CHECK(narrow("%#p|%#20p|%-#20p|", pointer, pointer, pointer) ==
          "0X00000000ABCDEF12|  0X00000000ABCDEF12|0X00000000ABCDEF12  |");
    int untouched = 5;
    CHECK(narrow("a%nb%d", &untouched, 7) == "ab7");
    CHECK(untouched == 5);
    CHECK(narrow("100%% %y %-5.3lk %") == "100% %y %-5.3lk %");
    CHECK(narrow("%5%|%ll") == "%|%ll");
    CHECK(narrow("%*d|%-*d|%.*d|%*d", 4, 1, 4, 2, -1, 3, -4, 4) == "   1|2   |3|4   ");
    CHECK(narrow("%05s|%-05s", "ab", "ab") == "000ab|ab   ");
}

TEST_CASE("text arguments in a wide format")
{
    CHECK(widely(L"[%s|%S|%hs|%ls|%ws|%lS|%hS|%Ls|%LS]", L"w\u20AC", "n\xE2\x82\xAC", "h", L"l", L"x", L"y",
                 "z", L"L", "M") == wide(L"[w\u20AC|n\u20AC|h|l|x|y|z|L|M]"));
    CHECK(widely(L"%c%C%hc%lc%5c|%-3c|", 0x20AC, 'n', 'h', L'l', L'r', L'f') == wide(L"\u20ACnhl    r|f  |"));
    CHECK(widely(L"%c", 0) == Wide(1, 0));
    CHECK(widely(L"%5s|%-5S|%.2s|%.3S|", L"ab", "\xC3\xA9", L"abc", "ab\xC3\xA9") ==
          wide(L"   ab|\u00E9    |ab|ab\uFFFD|"));
    CHECK(widely(L"%s%S%.3s", nullptr, nullptr, nullptr) == wide(L"(null)(null)(nu"));
    CHECK(widely(L"%d %.2f %x", -7, 1.005, 255u) == wide(L"-7 1.00 ff"));
}

TEST_CASE("text arguments in narrow formats")
{
    CHECK(narrow("%hS|%lS|%ws|%Ls|%LS", "h", L"l", L"w", "L", L"M") == "h|l|w|L|M");
    CHECK(narrow("[%s|%S|%hs|%ls|%6S|%-6ls|]", "n\xE2\x82\xAC", L"w\u20AC", "h", L"l", L"\u20AC",
                 L"\U0001F600") == "[n\xE2\x82\xAC|w\xE2\x82\xAC|h|l|   \xE2\x82\xAC|\xF0\x9F\x98\x80  |]");
    CHECK(narrow("%c%C%lc", 'a', 0x20AC, 0xE9) == "a\xE2\x82\xAC\xC3\xA9");
    CHECK(narrow("%.1S%.1S|", L"\U0001F600", L"ab") == "\xEF\xBF\xBD"
                                                       "a|");

    CHECK(ansi("%s %S %C", "\xE9", L"\u20AC\u0100", 0xE9) == "\xE9 \x80? \xE9");
    orvi::currentCodePage = 932;
    CHECK(ansi("%s|%5S|", "\x82\xA0", L"\u3042") == "\x82\xA0|   \x82\xA0|");
    orvi::currentCodePage = 12345;
    CHECK(ansi("%s|%3S|", "a", L"a") == "a|   |"); // nothing can be converted
    orvi::currentCodePage = 0;
}

TEST_CASE("a precision keeps a text from being read beyond it")
{
    const std::vector<char> bytes = {'a', 'b', 'c'}; // no terminator: the address sanitizer watches
    const std::vector<wchar_t> units = {L'a', L'b', L'c'};
    CHECK(narrow("%.3s%.3S%.*s", bytes.data(), units.data(), 0, nullptr) == "abcabc");
    CHECK(widely(L"%.3s%.3S", units.data(), bytes.data()) == wide(L"abcabc"));
    const std::vector<char> half = {'a', '\xE2', '\x82'};
    CHECK(widely(L"%.3S", half.data()) == Wide{L'a', 0xFFFD});
}

TEST_CASE("wide text of any length and alignment")
{
    std::vector<wchar_t> text(64, L'x');
    for (std::size_t start = 0; start < 16; ++start)
        for (std::size_t end = start; end < 40; ++end) {
            text[end] = 0;
            const Wide expected(end - start, L'x');
            CHECK(widely(L"%s", text.data() + start) == expected);
            CHECK(widely(text.data() + start) == expected);
            const auto precision = int(end - start);
            text[end] = L'x';
            CHECK(widely(L"%.*s", precision, text.data() + start) == expected);
            text[end] = L'%';
            text[end + 1] = L'd';
            text[end + 2] = 0;
            CHECK(widely(text.data() + start, 7).size() == end - start + 1);
            std::fill_n(text.begin() + std::ptrdiff_t(end), 3, L'x');
        }
}

TEST_CASE("large texts and sizes")
{
    const std::string big(300000, 'b');
    const Wide bigWide = [] {
        Wide text(300000, L'w');
        text.push_back(0);
        return text;
    }();
    CHECK(narrow("%s%s", big.c_str(), big.c_str()) == big + big);
    CHECK(narrow("%S", bigWide.data()) == std::string(300000, 'w'));
    CHECK(widely(L"<%s>", bigWide.data()).size() == 300002);

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
