#include "WideUnits.h"
#include "platform/base/CodePage.h"
#include "platform/base/ErrorText.h"
#include "platform/base/Format.h"

#include <doctest/doctest.h>
#include <orvi/core/Encoding.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <limits>
#include <numeric>
#include <string>
#include <thread>
#include <type_traits>
#include <utility>

#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#pragma GCC diagnostic ignored "-Wformat-security"

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

constexpr std::size_t enough = SIZE_MAX;

/** What comes where there is so much room, and nothing behind it. A text that is cut has no "#". */
template <class To, class From>
To converted(std::ptrdiff_t (&convert)(int, const typename From::value_type*, std::size_t,
                                       typename To::value_type*, std::size_t),
             int page, const From& text, std::size_t room)
{
    const std::ptrdiff_t size = convert(page, text.data(), text.size(), nullptr, 0);
    REQUIRE(size >= 0);
    To target(std::min(room, std::size_t(size)) + 1, '#');
    CHECK(convert(page, text.data(), text.size(), target.data(), target.size() - 1) == size);
    const auto end = std::find(target.begin() + (room == enough ? size : 0), target.end(), '#');
    CHECK(target.back() == '#');
    CHECK(std::count(end, target.end(), '#') == target.end() - end);
    return {target.begin(), end};
}

Wide toWide(int page, const std::string& text, std::size_t room = enough)
{
    return converted<Wide>(codePageToWide, page, text, room);
}
std::string fromWide(int page, const Wide& text, std::size_t room = enough)
{
    return converted<std::string>(wideToCodePage, page, text, room);
}

} // namespace

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

TEST_CASE("UTF-8 and UTF-16")
{
    const std::pair<std::string, Wide> rows[] = {
        {"", {}},
        {std::string(37, 'x'), Wide(37, L'x')}, // longer than a block
        {std::string("a\0b", 3), wide(L"a\0b")},
        {"\x7F\xC2\x80\xDF\xBF\xE0\xA0\x80", {0x7F, 0x80, 0x7FF, 0x800}}, // the first and last of each length
        {"\xED\x9F\xBF\xEE\x80\x80\xEF\xBF\xBF", {0xD7FF, 0xE000, 0xFFFF}},
        {"\xF0\x90\x80\x80\xF1\x80\x80\x80\xF4\x8F\xBF\xBF",
         {0xD800, 0xDC00, 0xD8C0, 0xDC00, 0xDBFF, 0xDFFF}},
    };
    for (const auto& row : rows) {
        CAPTURE(row.first);
        CHECK(toWide(utf8CodePage, row.first) == row.second);
        CHECK(fromWide(utf8CodePage, row.second) == row.first);
    }
    const std::string replaced = "\xEF\xBF\xBD";
    CHECK(fromWide(utf8CodePage, {0xD83D}) == replaced);
    CHECK(fromWide(utf8CodePage, {0xDE00, 0xD83D, L'a'}) == replaced + replaced + "a");
    CHECK(fromWide(utf8CodePage, {0xD83D, 0xD83D, 0xDE00}) == replaced + "\xF0\x9F\x98\x80");
}

TEST_CASE("malformed UTF-8 gives a mark for each part that could have been the start of a character")
{
    const std::pair<std::string, std::string> rows[] = {
        {"\x80\xBF\xC0\xC1\xF5\xFFz\xC2z\xC2", "??????z?z?"},
        {"\xE0\x9F\xBFz\xE1\x80z\xED\xA0\x80z\xEE\x80\xC0z\xE1\x80", "???z?z???z??z?"},
        {"\xF0\x8F\xBF\xBFz\xF0\x9Fz\xF0\x9F\x98z\xF0\x9F\xC0z\xF0\x9F\x98", "????z?z?z??z?"},
        {"\xF4\x90\x80\x80z\xF1\x80\xFF\x80z\xF3\xBF\xBF\xC0z\xF0\x9F", "????z???z??z?"},
    };
    for (const auto& [bytes, expected] : rows) {
        Wide units(expected.begin(), expected.end());
        std::replace(units.begin(), units.end(), L'?', wchar_t(0xFFFD));
        CHECK(toWide(utf8CodePage, bytes) == units);
    }
}

TEST_CASE("text is cut between characters, and counted to its end")
{
    const std::pair<int, Wide> rows[] = {
        {utf8CodePage, wide(L"0123456789abcdef\U0001F600a\u00E9xyz0123456789abcdef")},
        {936, wide(L"a\u4E2D\u4E2Db\u4E2D")},
        {50225, wide(L"a\u4E2D\u4E2Db\u4E2D")},
    };
    for (const auto& [page, text] : rows) {
        const std::string all = fromWide(page, text);
        for (std::size_t room = 0; room < all.size(); ++room) {
            CAPTURE(room);
            const std::string cut = fromWide(page, text, room);
            CHECK(all.starts_with(cut));
            CHECK((page != utf8CodePage || cut.size() + 3 >= room));
            const Wide back = toWide(page, cut);
            CHECK(std::equal(back.begin(), back.end(), text.begin()));
        }
        for (std::size_t room = 0; room < text.size(); ++room) {
            const bool cutsPair = (text[room] & 0xFC00) == 0xDC00;
            const Wide expected(text.begin(), text.begin() + std::ptrdiff_t(room - cutsPair));
            CHECK(toWide(page, all, room) == expected);
        }
    }
}

TEST_CASE("each page gives back every character that it has")
{
    for (const int page : {0,    437,  850,  852,  866,  874,  932,  936,   949,   950,   1250,  1251,
                           1252, 1253, 1254, 1255, 1256, 1257, 1258, 20127, 20866, 28591, 28592, 28605}) {
        CAPTURE(page);
        Wide units(0x10000);
        std::iota(units.begin(), units.end(), wchar_t(0));
        const std::string narrow = fromWide(page, units);
        const Wide back = toWide(page, narrow);
        REQUIRE(back.size() == units.size());
        CHECK((fromWide(page, back) == narrow));
        int characters = 0;
        for (std::size_t unit = 0; unit < units.size(); ++unit) {
            characters += back[unit] == unit;
            if (back[unit] != unit && back[unit] != '?')
                FAIL("unit " << unit << " came back as " << unsigned(back[unit]));
        }
        const bool hasPairs = page == 932 || page == 936 || page == 949 || page == 950;
        CHECK(characters >= (hasPairs ? 9000 : 128));
        CHECK(characters <= (hasPairs ? 0x10000 : 256));

        std::string pairs;
        for (unsigned pair = 0; pair < 0x10000; ++pair)
            pairs.append({char(pair >> 8), char(pair), ' '});
        const Wide decoded = toWide(page, pairs);
        CHECK((toWide(page, fromWide(page, decoded)) == decoded));
    }
}

TEST_CASE("characters of the code pages, and question marks for what they lack")
{
    const struct {
        int page;
        std::string narrow;
        Wide wide;
    } rows[] = {
        {0, "\x80\xE9", wide(L"\u20AC\u00E9")}, // 0 is 1252
        {874, "\xA1", wide(L"\u0E01")},
        {866, "\x8F", wide(L"\u041F")},
        {20866, "\xF0", wide(L"\u041F")},
        {932, "\xB1\x82\xA0\\", wide(L"\uFF71\u3042\\")}, // half-width and full-width
        {932, "\x81\xCA", wide(L"\uFFE2")},               // the usual one of two codes
        {936, "a\xD6\xD0", wide(L"a\u4E2D")},
        {949, "\xB0\xA1\x81\x41", wide(L"\uAC00\uAC02")}, // beyond the standard set too
        {950, "\xA4\xA4\xF9\xF9\xF9\xE9\xF9\xEB\xF9\xEA", wide(L"\u4E2D\u2550\u255E\u2561\u256A")},
        {1255, "\xF9\xD1\xCA", wide(L"\u05E9\u05C1\u05BA")}, // a letter and its point stay apart
        {1252, "\x80\x81\x9D", {0x20AC, 0x81, 0x9D}},        // control characters where there is nothing else
        {874, "\x84\x85\x9F", {0x84, 0x2026, 0x9F}},
        {1258, "a\xEC!", wide(L"a\u0301!")}, // marks stay apart
        {50225, "a\x1B$)C\x0E\x30\x21\x21\x22\x0F!", wide(L"a\uAC00\u3001!")},
        {50225, "\x1B$)C\x0E\x30\x21\x0F", wide(L"\uAC00")}, // ends as ASCII
        {50225, "plain", wide(L"plain")},
        {1255, "\xD9z\xFF", wide(L"?z?")},
        {950, "\x81\\n\xFE\\n", wide(L"?n?n")}, // pairs whose first byte begins no defined one
        {949, "\xC9\xA1n\xFE\xFEn", wide(L"?n?n")},
        {20127, "a\xE9", wide(L"a?")},
        {932, "a\x82", wide(L"a?")}, // first byte at the end
        {936, std::string("\xD6\0a", 3), wide(L"?\0a")},
        {932, "\x82\x20!", wide(L"?!")},                       // undefined pair
        {50225, "\x0E\x30\x0F\xE9\x0E\x7E\x7E", wide(L"???")}, // half a pair, a top bit, an undefined pair
    };
    for (const auto& row : rows) {
        CAPTURE(row.page);
        CHECK(toWide(row.page, row.narrow) == row.wide);
        if (std::find(row.wide.begin(), row.wide.end(), L'?') == row.wide.end())
            CHECK(fromWide(row.page, row.wide) == row.narrow);
    }
    CHECK(fromWide(1252, wide(L"\u0100\uFF21\u2260\U0001F600z")) == "?????z"); // no A for a full-width A
    CHECK(fromWide(932, wide(L"\u00A5\u00A2")) == "??");                       // no backslash for a yen sign
    CHECK(fromWide(1258, wide(L"\u1EA5")) == "?");
    CHECK(fromWide(50225, wide(L"\u00E9\uAC02")) == "??");
    for (const int page : {-1, 1, 1259, 12345, 65000, INT_MAX}) {
        CAPTURE(page);
        CHECK(codePageToWide(page, "a", 1, nullptr, 0) == -1);
        CHECK(wideToCodePage(page, L"a", 1, nullptr, 0) == -1);
    }
    CHECK(codePageToWide(1252, nullptr, 0, nullptr, 0) == 0);
    CHECK(wideToCodePage(utf8CodePage, nullptr, 0, nullptr, 0) == 0);
}

TEST_CASE("threads may ask for the same page first")
{
    std::vector<std::thread> threads;
    std::vector<wchar_t> units(8);
    for (wchar_t& unit : units)
        threads.emplace_back([&unit] { codePageToWide(950, "\xA4\xA4", 2, &unit, 1); });
    for (std::thread& thread : threads)
        thread.join();
    CHECK(units == Wide(8, 0x4E2D));
}

TEST_CASE("error texts are cut to the room that there is")
{
    char text[100] = "x";
    errorText(ENOENT, text, 0);
    CHECK(text[0] == 'x');
    errorText(ENOENT, text, 8);
    CHECK(std::string(text) == "No such");
    errorText(-1, text, sizeof text);
    CHECK(std::string(text).empty());
}
