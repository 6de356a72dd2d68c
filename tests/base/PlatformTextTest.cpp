#include <algorithm>
#include <cerrno>
#include <climits>
#include <doctest/doctest.h>
#include <string>
#include <thread>
#include <vector>

#include "WideUnits.h"
#include "platform/base/CodePage.h"
#include "platform/base/ErrorText.h"

namespace {

using namespace orvi::platform;

Wide toWide(int page, const std::string& text)
{
    const std::ptrdiff_t size = codePageToWide(page, text.data(), text.size(), nullptr, 0);
    REQUIRE(size >= 0);
    Wide result(std::size_t(size) + 1, L'#');
    CHECK(codePageToWide(page, text.data(), text.size(), result.data(), std::size_t(size)) == size);
    CHECK(result.back() == L'#');
    result.pop_back();
    return result;
}

std::string fromWide(int page, const Wide& text)
{
    const std::ptrdiff_t size = wideToCodePage(page, text.data(), text.size(), nullptr, 0);
    REQUIRE(size >= 0);
    std::string result(std::size_t(size) + 1, '#');
    CHECK(wideToCodePage(page, text.data(), text.size(), result.data(), std::size_t(size)) == size);
    CHECK(result.back() == '#');
    result.pop_back();
    return result;
}

/** Decodes by trying what is well-formed against the encoding rule itself. */
Wide slowUtf8ToWide(const std::string& text)
{
    const auto byteAt = [&](std::size_t at) { return unsigned(static_cast<unsigned char>(text[at])); };
    // All strings that start some well-formed sequence, by the value ranges of each length.
    const auto canStart = [&](std::size_t at, std::size_t count, std::size_t length) {
        const unsigned marks[] = {0, 0, 0xC0, 0xE0, 0xF0};
        const unsigned masks[] = {0, 0, 0xE0, 0xF0, 0xF8};
        const unsigned lowest[] = {0, 0, 0x80, 0x800, 0x10000};
        if ((byteAt(at) & masks[length]) != marks[length])
            return false;
        unsigned low = byteAt(at) & ~masks[length] & 0xFF;
        unsigned high = low;
        for (std::size_t i = 1; i < length; ++i) {
            if (i < count && (byteAt(at + i) & 0xC0) != 0x80)
                return false;
            low = low << 6 | (i < count ? byteAt(at + i) & 0x3F : 0);
            high = high << 6 | (i < count ? byteAt(at + i) & 0x3F : 0x3F);
        }
        low = std::max(low, lowest[length]);
        high = std::min(high, length == 3 ? 0xFFFFu : 0x10FFFFu);
        if (low >= 0xD800 && low <= 0xDFFF)
            low = 0xE000;
        return low <= high;
    };
    Wide result;
    for (std::size_t at = 0; at < text.size();) {
        if (byteAt(at) < 0x80) {
            result.push_back(wchar_t(byteAt(at++)));
            continue;
        }
        std::size_t longest = 1; // of the prefix that is not wrong yet
        std::size_t whole = 0;
        for (std::size_t length = 2; length <= 4; ++length)
            for (std::size_t count = 1; count <= length && at + count <= text.size(); ++count)
                if (canStart(at, count, length)) {
                    longest = std::max(longest, count);
                    if (count == length)
                        whole = length;
                }
        if (whole == 0) {
            result.push_back(0xFFFD);
            at += longest;
            continue;
        }
        unsigned ch = byteAt(at) & (0xFFu >> (whole + 1));
        for (std::size_t i = 1; i < whole; ++i)
            ch = ch << 6 | (byteAt(at + i) & 0x3F);
        if (ch >= 0x10000) {
            result.push_back(wchar_t(0xD800 + ((ch - 0x10000) >> 10)));
            result.push_back(wchar_t(0xDC00 + ((ch - 0x10000) & 0x3FF)));
        } else {
            result.push_back(wchar_t(ch));
        }
        at += whole;
    }
    return result;
}

const int tablePages[] = {0,    437,  850,  852,  866,  874,  932,  936,   949,   950,   1250,  1251,
                          1252, 1253, 1254, 1255, 1256, 1257, 1258, 20127, 20866, 28591, 28592, 28605};

} // namespace

TEST_CASE("UTF-8 and UTF-16")
{
    const struct {
        const char* what;
        std::string narrow;
        Wide wide;
    } rows[] = {
        {"empty", "", {}},
        {"ASCII longer than a block", std::string(37, 'x'), Wide(37, L'x')},
        {"a NUL inside", std::string("a\0b", 3), wide(L"a\0b")},
        {"two, three and four bytes", "\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80!",
         wide(L"\u00E9\u20AC\U0001F600!")},
        {"the last of each length",
         "\x7F\xDF\xBF\xEF\xBF\xBF\xF4\x8F\xBF\xBF",
         {0x7F, 0x7FF, 0xFFFF, 0xDBFF, 0xDFFF}},
    };
    for (const auto& row : rows) {
        CAPTURE(row.what);
        CHECK(toWide(utf8CodePage, row.narrow) == row.wide);
        CHECK(fromWide(utf8CodePage, row.wide) == row.narrow);
    }
    const std::string replaced = "\xEF\xBF\xBD";
    CHECK(fromWide(utf8CodePage, {0xD83D}) == replaced);
    CHECK(fromWide(utf8CodePage, {0xDE00, 0xD83D, L'a'}) == replaced + replaced + "a");
    CHECK(fromWide(utf8CodePage, {0xD83D, 0xD83D, 0xDE00}) == replaced + "\xF0\x9F\x98\x80");
    CHECK(toWide(utf8CodePage, "\xF0\x9F\x98x\xC0\x80\xED\xA0\x80") ==
          Wide{0xFFFD, L'x', 0xFFFD, 0xFFFD, 0xFFFD, 0xFFFD, 0xFFFD});
}

TEST_CASE("UTF-8 decodes like a slow decoder, whatever the bytes")
{
    const std::string bytes = std::string("\0A\x7F\x80\x8F\x90\x9F\xA0\xBF\xC0\xC1\xC2\xDF\xE0\xE1", 15) +
                              "\xEC\xED\xEE\xEF\xF0\xF1\xF3\xF4\xF5\xFF";
    std::size_t wrong = 0;
    std::string text;
    const auto check = [&] {
        wchar_t got[4] = {};
        const std::ptrdiff_t size = codePageToWide(utf8CodePage, text.data(), text.size(), got, 4);
        const Wide expected = slowUtf8ToWide(text);
        const bool isRight = size == std::ptrdiff_t(expected.size()) &&
                             codePageToWide(utf8CodePage, text.data(), text.size(), nullptr, 0) == size &&
                             std::equal(expected.begin(), expected.end(), got);
        wrong += !isRight;
    };
    const auto extend = [&](const auto& self) -> void {
        for (const char byte : bytes) {
            text.push_back(byte);
            check();
            if (text.size() < 4)
                self(self);
            text.pop_back();
        }
    };
    extend(extend);
    CHECK(wrong == 0);
}

TEST_CASE("UTF-8 is cut between characters and goes on counting")
{
    const std::string text = "0123456789abcdef\xF0\x9F\x98\x80"
                             "a\xC3\xA9xyz0123456789abcdef";
    const Wide all = toWide(utf8CodePage, text);
    for (std::size_t capacity = 0; capacity <= all.size(); ++capacity) {
        Wide target(capacity + 1, L'#');
        CHECK(codePageToWide(utf8CodePage, text.data(), text.size(), target.data(), capacity) ==
              std::ptrdiff_t(all.size()));
        const std::size_t whole = capacity == 17 ? 16 : capacity; // no half of a surrogate pair
        CHECK(std::equal(all.begin(), all.begin() + std::ptrdiff_t(whole), target.begin()));
        CHECK(target[whole] == L'#');
    }
    for (std::size_t capacity = 0; capacity <= text.size(); ++capacity) {
        std::string target(capacity + 1, '#');
        CHECK(wideToCodePage(utf8CodePage, all.data(), all.size(), target.data(), capacity) ==
              std::ptrdiff_t(text.size()));
        const std::size_t whole = std::min(target.find('#'), capacity);
        CHECK(target.compare(0, whole, text, 0, whole) == 0);
        CHECK(whole + 3 >= capacity);
        CHECK(((whole == text.size()) || (text[whole] & 0xC0) != 0x80));
    }
}

TEST_CASE("each page gives back every character that it has")
{
    for (const int page : tablePages) {
        CAPTURE(page);
        int characters = 0;
        for (unsigned unit = 0; unit < 0x10000; ++unit) {
            const auto source = wchar_t(unit);
            char bytes[2];
            const std::ptrdiff_t size = wideToCodePage(page, &source, 1, bytes, sizeof bytes);
            if (size < 1 || size > 2)
                FAIL("size " << size << " for unit " << unit);
            if (size == 1 && bytes[0] == '?' && unit != '?')
                continue;
            ++characters;
            wchar_t back[2] = {};
            if (codePageToWide(page, bytes, std::size_t(size), back, 2) != 1 || back[0] != source)
                FAIL("unit " << unit << " came back as " << unsigned(back[0]));
        }
        CHECK(characters >= 128);
        if (page == 932 || page == 936 || page == 949 || page == 950)
            CHECK(characters > 9000);
        else
            CHECK(characters <= 256);
        for (unsigned pair = 0; pair < 0x10000; ++pair) { // what decodes can be encoded
            const char bytes[2] = {char(pair >> 8), char(pair)};
            wchar_t units[2];
            const std::ptrdiff_t size = codePageToWide(page, bytes, 2, units, 2);
            char back[4];
            wchar_t again[4] = {};
            const std::ptrdiff_t backSize = wideToCodePage(page, units, std::size_t(size), back, 4);
            if (codePageToWide(page, back, std::size_t(backSize), again, 4) != size ||
                !std::equal(units, units + size, again))
                FAIL("pair " << pair);
        }
    }
}

TEST_CASE("characters of the code pages")
{
    const struct {
        const char* what;
        int page;
        std::string narrow;
        Wide wide;
    } rows[] = {
        {"0 is 1252", 0, "\x80\xE9", wide(L"\u20AC\u00E9")},
        {"Thai", 874, "\xA1", wide(L"\u0E01")},
        {"Cyrillic of two systems", 866, "\x8F", wide(L"\u041F")},
        {"and the other", 20866, "\xF0", wide(L"\u041F")},
        {"half-width and full-width Japanese", 932, "\xB1\x82\xA0\\", wide(L"\uFF71\u3042\\")},
        {"the usual one of two codes", 932, "\x81\xCA", wide(L"\uFFE2")},
        {"Chinese", 936, "a\xD6\xD0", wide(L"a\u4E2D")},
        {"Chinese, traditional", 950, "\xA4\xA4", wide(L"\u4E2D")},
        {"Korean, beyond the standard set too", 949, "\xB0\xA1\x81\x41", wide(L"\uAC00\uAC02")},
        {"Hebrew with points stays apart", 1255, "\xF9\xD1", wide(L"\u05E9\u05C1")},
        {"a point that is seldom used", 1255, "\xCA", wide(L"\u05BA")},
        {"a control character where there is nothing else", 1252, "\x80\x81\x9D", {0x20AC, 0x81, 0x9D}},
        {"and in another page", 874, "\x84\x85\x9F", {0x84, 0x2026, 0x9F}},
        {"boxes that have two codes", 950, "\xF9\xF9\xF9\xE9\xF9\xEB\xF9\xEA",
         wide(L"\u2550\u255E\u2561\u256A")},
        {"Vietnamese with marks stays apart", 1258,
         "a\xEC"
         "b",
         wide(L"a\u0301"
              L"b")},
        {"Korean mail", 50225,
         "a\x1B$)C\x0E\x30\x21\x21\x22\x0F"
         "b",
         wide(L"a\uAC00\u3001b")},
        {"Korean mail ends as ASCII", 50225, "\x1B$)C\x0E\x30\x21\x0F", wide(L"\uAC00")},
        {"Korean mail without Korean", 50225, "plain", wide(L"plain")},
    };
    for (const auto& row : rows) {
        CAPTURE(row.what);
        CHECK(toWide(row.page, row.narrow) == row.wide);
        CHECK(fromWide(row.page, row.wide) == row.narrow);
    }
}

TEST_CASE("what a code page lacks becomes a question mark")
{
    const struct {
        const char* what;
        int page;
        std::string narrow;
        Wide wide;
    } decoded[] = {
        {"undefined bytes", 1255, "\xD9z\xFF", wide(L"?z?")},
        {"undefined pairs of first bytes that have no others", 950, "\x81\\n\xFE\\n", wide(L"?n?n")},
        {"the same in Korean", 949, "\xC9\xA1n\xFE\xFEn", wide(L"?n?n")},
        {"no ASCII", 20127, "a\xE9", wide(L"a?")},
        {"first byte at the end", 932, "a\x82", wide(L"a?")},
        {"first byte before a NUL", 936, std::string("\xD6\0a", 3), wide(L"?\0a")},
        {"undefined pair", 932,
         "\x82\x20"
         "b",
         wide(L"?b")},
        {"Korean mail: half a pair, an undefined pair, a top bit", 50225, "\x0E\x30\x0F\xE9\x0E\x7E\x7E",
         wide(L"???")},
    };
    for (const auto& row : decoded) {
        CAPTURE(row.what);
        CHECK(toWide(row.page, row.narrow) == row.wide);
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

TEST_CASE("text in a code page is cut between characters")
{
    const Wide text = wide(L"a\u4E2D\u4E2Db\u4E2D");
    for (const int page : {936, 50225}) {
        const std::string all = fromWide(page, text);
        for (std::size_t capacity = 0; capacity < all.size(); ++capacity) {
            CAPTURE(capacity);
            std::string target(capacity + 1, '#');
            CHECK(wideToCodePage(page, text.data(), text.size(), target.data(), capacity) ==
                  std::ptrdiff_t(all.size()));
            const std::size_t whole = target.find('#');
            CHECK(target.compare(0, whole, all, 0, whole) == 0);
            CHECK(target.find_first_not_of('#', whole) == target.npos);
            const Wide back = toWide(page, target.substr(0, whole));
            CHECK(std::equal(back.begin(), back.end(), text.begin()));
        }
    }
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

TEST_CASE("error texts")
{
    char text[100];
    errno = EAGAIN;
    errorText(ENOENT, text, sizeof text);
    CHECK(std::string(text) == "No such file or directory");
    errorText(123456, text, sizeof text);
    CHECK(std::string(text).empty());
    errorText(-1, text, sizeof text);
    CHECK(std::string(text).empty());
    errorText(ENOENT, text, 8);
    CHECK(std::string(text) == "No such");
    text[0] = 'x';
    errorText(ENOENT, text, 0);
    CHECK(text[0] == 'x');
    CHECK(lastError() == EAGAIN);
}
