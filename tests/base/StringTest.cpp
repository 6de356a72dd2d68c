#include "TextPrinting.h"

#include "RecordingLog.h"

#include <orvi/core/Core.h>

#include <random>
#include <string>
#include <thread>
#include <vector>

using orvi::String;
using orvi::String_T;
using Utf8 = String_T<char>;
using Ansi = String_T<unsigned char>;

namespace {

/** Whether two strings share one block. */
template <class T>
bool shares(const String_T<T>& a, const String_T<T>& b)
{
    return a.getBuffer() == b.getBuffer();
}

const unsigned char* bytes(const char* text) { return reinterpret_cast<const unsigned char*>(text); }

} // namespace

TEST_CASE("every way to an empty text ends in the shared empty block")
{
    String changed(L"abc");
    changed.remove(L"abc");
    String erased(L"abc");
    erased.erase(0, 3);
    String replaced(L"aa");
    replaced.replace(L"a", L"");
    String formatted(L"abc");
    formatted.format(L"%s", L"");
    String assigned(L"abc");
    assigned = static_cast<const wchar_t*>(nullptr);
    String set(L"abc");
    set.setBuffer(L"x", 0);
    const String empty;
    const struct {
        const char* what;
        String text;
    } rows[] = {
        {"null", String(static_cast<const wchar_t*>(nullptr))},
        {"empty literal", String(L"")},
        {"code value 0", String(0)},
        {"nothing but NULs", String(L"\0\0", 2)},
        {"negative count", String(L"abc", -1)},
        {"remove", changed},
        {"erase", erased},
        {"replace", replaced},
        {"format", formatted},
        {"assigned null", assigned},
        {"setBuffer of 0 bytes", set},
        {"trim of blanks", String(L" \t\n").trim()},
        {"sub-string behind the end", String(L"abc").getSubString(7, 2)},
        {"sum of empties", empty + empty},
    };
    for (const auto& row : rows) {
        CAPTURE(row.what);
        CHECK(shares(row.text, empty));
    }
    CHECK(empty.getBufferLength() == 2);
    CHECK(Utf8().getBufferLength() == 1);
    CHECK(Utf8().getLength() == 0);
}

TEST_CASE("blocks are exact and shared until one side changes")
{
    String a(L"abc");
    CHECK(a.getBufferLength() == 8);
    String b(a);
    CHECK(shares(a, b));
    b.toUpperCase();
    CHECK(a == L"abc");
    CHECK(b == L"ABC");

    String c(a);
    c.replace(L"b", L"x");
    CHECK(a == L"abc");
    CHECK(c == L"axc");

    const wchar_t* block = c.getBuffer();
    c = L"xyz"; // same size, not shared: in place
    CHECK(c.getBuffer() == block);
    c.replace(L'y', L'-');
    CHECK(c.getBuffer() == block);
    CHECK(c == L"x-z");
    c.trim();
    CHECK(c.getBuffer() == block);
    CHECK(shares(c.getSubString(0, -1), c));
    CHECK(shares(c + L"", c));
    CHECK(shares(String() + c, c));

    c = c.getBuffer() + 1; // from its own text
    CHECK(c == L"-z");
    c.setBuffer(c.getBuffer() + 1, 2);
    CHECK(c == L"z");
    c = *&c;
    CHECK(c == L"z");
    c.insert(1, c);
    CHECK(c == L"zz");
    String own(L"a.b.c");
    CHECK(own.replace(own.getBuffer() + 4, L"x") == 1);
    CHECK(own == L"a.b.x");
    String self(L"ab");
    CHECK(self.format(L"%s-%s", self.getBuffer(), self.getBuffer()) == 5);
    CHECK(self == L"ab-ab");
}

TEST_CASE("counted and sized construction")
{
    CHECK(String(L"abc", 3) == L"abc");
    CHECK(String(L"abc\0", 4) == L"abc");
    const String inner(L"a\0b", 3);
    CHECK(inner.getLength() == 3);
    CHECK(inner.compare(L"a") == 0);
    CHECK(inner != String(L"a"));
    CHECK(Utf8("\xC3\xA9zz", 2) == "\xC3\xA9z");

    String odd;
    odd.setBuffer(L"abc", 3); // one and a half units: rounded up and filled with zero bytes
    CHECK(odd.getBufferLength() == 6);
    CHECK(odd.getBuffer()[0] == L'a');
    CHECK(odd.getBuffer()[1] == L'b');
    odd.setBuffer(L"\x1234\x5678", 3);
    CHECK(odd.getBuffer()[1] == 0x78);
    CHECK(odd.getBuffer()[2] == 0);
}

TEST_CASE("UTF-8 counts characters, and finds in bytes")
{
    const Utf8 text("\xC3\xA9"
                    "a\xE2\x82\xAC");
    CHECK(text.getBufferLength() == 7);
    CHECK(text.getLength() == 3);
    CHECK(text[0] == 0xE9);
    CHECK(text[1] == 'a');
    CHECK(text[2] == 0x20AC);
    CHECK(text[3] == 0);
    CHECK(text.find('a', 0) == 2);
    CHECK(text.find("a", 2) == -1);
    CHECK(text.find(0x20AC, 1) == 3);
    CHECK(text.getSubString(1, 1) == "a");
    CHECK(text.getSubString(2, 9) == "\xE2\x82\xAC");
    CHECK(Utf8(0x416) == "\xD0\x96");
    Utf8 appended("x");
    appended += 0x20AC;
    CHECK(appended == "x\xE2\x82\xAC");
    CHECK(appended.remove(0x20AC) == 1);
    CHECK(appended == "x");

    // Broken sequences: a lead byte takes the continuations that are there, nothing beyond the end.
    const struct {
        const char* text;
        int length;
    } rows[] = {{"\xE2", 1}, {"\xE2\x82", 1}, {"\xE2z", 2},
                {"\xC3", 1}, {"\x80\x80", 2}, {"\xF0\x9F\x98\x80", 4}};
    for (const auto& row : rows) {
        CAPTURE(row.text);
        CHECK(Utf8(row.text).getLength() == row.length);
    }
}

TEST_CASE("ANSI text steps over lead and trail bytes")
{
    const int before = orvi::getCodePage();
    orvi::setCodePage(932);
    Ansi text(bytes("\x83\x41"
                    "A")); // the trail byte looks like a letter
    CHECK(text.getLength() == 2);
    CHECK(text[0] == 0x30A2);
    CHECK(text[1] == 'A');
    text.toLowerCase();
    CHECK(text == bytes("\x83\x41"
                        "a"));
    CHECK(Ansi(0x30A2) == bytes("\x83\x41"));
    CHECK(orvi::charLength<unsigned char>(0x30A2) == 2);
    CHECK(text.find(L'a') == 2);
    const Ansi cut(bytes("a\x83")); // a lead byte without its trail
    CHECK(cut.getLength() == 2);
    CHECK(cut.getSubString(1, 5) == bytes("\x83"));
    orvi::setCodePage(before);
}

TEST_CASE("find, sub-string, insert and erase, also beyond the text")
{
    const String text(L"abcd");
    CHECK(text.find(L"cd", 0) == 2);
    CHECK(text.find(L"", 2) == 2);
    CHECK(text.find(L"a", 1) == -1);
    CHECK(text.find(L'd') == 3);
    CHECK(text.find(0) == 4);
    CHECK(text.find(L"a", 100) == -1);
    CHECK(String().find(L"") == -1);
    CHECK(text.getSubString(1, 100) == L"bcd");
    CHECK(text.getSubString(1, 2147483647) == L"bcd");
    CHECK(text[-1] == 0);
    CHECK(text[4] == 0);

    String changed(text);
    CHECK(changed.insert(2, L"--") == 6);
    CHECK(changed == L"ab--cd");
    CHECK(changed.insert(99, L'!') == 7);
    CHECK(changed == L"ab--cd!");
    CHECK(changed.erase(2, 2) == 2);
    CHECK(changed == L"abcd!");
    CHECK(changed.erase(1, 0) == 0);
    CHECK(changed.erase(1, -3) == -3);
    CHECK(changed.erase(3, 2147483647) == 2147483647);
    CHECK(changed == L"abc");
}

TEST_CASE("remove and replace go left to right, never twice")
{
    const struct {
        const wchar_t *text, *needle, *replacement;
        int count;
        const wchar_t* expected;
    } rows[] = {
        {L"aaa", L"aa", L"", 1, L"a"},   {L"aaaa", L"aa", L"b", 2, L"bb"},
        {L"ab", L"b", L"bb", 1, L"abb"}, {L"abc", L"", L"x", 0, L"abc"},
        {L"abc", L"z", L"x", 0, L"abc"}, {L"abab", L"b", nullptr, 2, L"aa"},
        {L"xyx", L"x", L"y", 2, L"yyy"}, {L"one two one", L"one", L"three", 2, L"three two three"},
    };
    for (const auto& row : rows) {
        CAPTURE(row.text);
        String text(row.text);
        CHECK(text.replace(row.needle, row.replacement) == row.count);
        CHECK(text == row.expected);
    }
}

TEST_CASE("long needles that repeat themselves are found as the slow way finds them")
{
    std::mt19937 random(7);
    for (int round = 0; round < 300; ++round) {
        std::string text, needle;
        for (unsigned i = 0; i < 400; ++i)
            text += static_cast<char>('a' + random() % 2 * (random() % 20 == 0));
        const std::size_t from = random() % 300;
        needle = text.substr(from, 17 + random() % 60);
        if (round % 3 == 0)
            needle += 'a';
        CHECK(Utf8(text.c_str()).find(needle.c_str()) == static_cast<int>(text.find(needle)));
    }
}

TEST_CASE("a wide text is measured to its NUL wherever it starts")
{
    for (std::size_t start = 0; start < 9; ++start) {
        for (std::size_t size = 0; size < 40; ++size) {
            std::vector<wchar_t> units(start + size + 1, L'a');
            units.back() = 0;
            CHECK(orvi::stringLength(units.data() + start) == static_cast<int>(size));
        }
    }
}

TEST_CASE("comparison is by unsigned elements, in both orders of the operands")
{
    const String text(L"b");
    CHECK(text.compare(nullptr) == 1);
    CHECK(String().compare(nullptr) == 0);
    CHECK(text.compare(L"\x8000") == -1);
    CHECK(Utf8("\xC3").compare("a") == 1);
    CHECK(L"a" < text);
    CHECK(L"b" == text);
    CHECK(L"c" != text);
    CHECK(L"c" >= text);
    CHECK(text < String(L"ba"));
    CHECK(String(L"AbC").compareNoCase(L"aBc") == 0);
    CHECK(String(L"a").compareNoCase(L"B") < 0);
    CHECK(L"x" + text + L"y" == L"xby");
}

TEST_CASE("trim cuts ASCII white space and keeps a block with nothing to cut")
{
    CHECK(String(L" \t a b \r\n").trim() == L"a b");
    CHECK(String(L" a ").trimLeft() == L"a ");
    CHECK(String(L" a ").trimRight() == L" a");
    CHECK(Utf8("\xC2\xA0 x").trim() == "\xC2\xA0 x"); // a no-break space is none
}

TEST_CASE("format follows the conventions of the Windows runtime at both widths")
{
    String text;
    text.format(L"%s|%S|%hs|%ls|%c|%5d|%-5d|%05d|%*d", L"wide", "n\xC3\xA4rrow", "h", L"l", L'c', 42, 42, 42,
                4, 7);
    CHECK(text == L"wide|n\x00E4rrow|h|l|c|   42|42   |00042|   7");
    text.format(L"%I64d %I64u %I64X %lld %ld %u", -1LL, 18446744073709551615ULL, 0xABCDEFULL, 5LL, -6L,
                4000000000U);
    CHECK(text == L"-1 18446744073709551615 ABCDEF 5 -6 4000000000");
    text.format(L"%p %.3f %g %e", reinterpret_cast<void*>(0xABC), 1.5, 0.1, 12345.678);
    CHECK(text == L"0000000000000ABC 1.500 0.1 1.234568e+04");
    Utf8 narrow;
    CHECK(narrow.format("%s %S %ls %.2s", "a", L"\x20AC", L"b", "xyz") == 10);
    CHECK(narrow == "a \xE2\x82\xAC b xy");
    text.format(L"%300d", 1); // longer than what is formatted in one pass
    CHECK(text.getLength() == 300);
    text.format(L"100%%");
    CHECK(text == L"100%");
}

TEST_CASE(
    "a text larger than its length could tell is not made, the log says so, and the string keeps its own")
{
    const RecordingLog log;
    Utf8 text("kept");
    CHECK(text.format("%2147483647d", 1) == 0);
    CHECK(text == "kept");
    REQUIRE(log.lines().size() == 1);
    CHECK(log.lines()[0].text == L"Allocate memory(2147483660) error!");
}

TEST_CASE("strings share their blocks across threads")
{
    const Utf8 shared("\xC3\xA9t\xC3\xA9 shared by all");
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([copy = shared] {
            for (int round = 0; round < 2000; ++round) {
                Utf8 mine(copy);
                CHECK(mine.getLength() == 17);
                mine.toUpperCase();
                const Utf8 another(mine);
                CHECK(another.find("SHARED") == 6);
            }
        });
    }
    for (auto& thread : threads)
        thread.join();
    CHECK(shared == "\xC3\xA9t\xC3\xA9 shared by all");
}

TEST_CASE("bulk copy and fill give what memcpy and memset give")
{
    for (unsigned size : {0U, 1U, 15U, 127U, 128U, 129U, 4096U, 100003U}) {
        std::vector<unsigned char> source(size + 8), target(size + 8, 0xEE), expected(size + 8, 0xEE);
        for (std::size_t i = 0; i < source.size(); ++i)
            source[i] = static_cast<unsigned char>(i * 7);
        std::copy(source.begin() + 3, source.begin() + 3 + size, expected.begin() + 1);
        CHECK(orvi::__memcpy__(target.data() + 1, source.data() + 3, size) == target.data() + 1);
        CHECK(target == expected);
        std::fill(expected.begin() + 5, expected.begin() + 5 + size, static_cast<unsigned char>(0xA5));
        target.resize(size + 8);
        CHECK(orvi::__memset__(target.data() + 5, 0x1A5, size) == target.data() + 5);
        CHECK(target == expected);
    }
    CHECK(orvi::nothing(1, "x", 2.0) == 0);
}
