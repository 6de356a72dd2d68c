#include "TextPrinting.h"

#include <orvi/core/Arguments.h>

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <utility>
#include <vector>

using orvi::String;

namespace {

/** Through all forms. */
std::vector<String> split(const wchar_t* commandLine)
{
    wchar_t unset = 0;
    int entries = 0, characters = 0;
    orvi::parseArguments(commandLine, nullptr, nullptr, &entries, &characters);
    std::vector<wchar_t*> table(static_cast<std::size_t>(entries), &unset);
    std::vector<wchar_t> text(static_cast<std::size_t>(characters)),
        alone(text); // the sanitizer sees one too many
    orvi::parseArguments(commandLine, table.data(), nullptr, &entries, &characters);
    CHECK(std::ranges::count(table, nullptr) == entries);
    orvi::parseArguments(commandLine, nullptr, alone.data(), &entries, &characters);
    orvi::parseArguments(commandLine, table.data(), text.data(), &entries, &characters);
    CHECK(static_cast<std::size_t>(characters) == text.size());
    CHECK((alone == text));
    CHECK(table.back() == nullptr);
    table.pop_back();
    const std::vector<String> arguments(table.begin(), table.end());

    wchar_t** argv = nullptr;
    int argc = 0;
    orvi::parseArguments(commandLine, argv, argc);
    REQUIRE(argv != nullptr);
    CHECK(std::vector<String>(argv, argv + argc) == arguments);
    CHECK(argv[argc] == nullptr);
    std::free(argv);
    return arguments;
}

/** What is left of a text. */
String after(void (*skip)(String&), String text)
{
    skip(text);
    return text;
}

} // namespace

TEST_CASE("a command line is split into arguments")
{
    const std::pair<const wchar_t*, std::vector<String>> rows[] = {
        {nullptr, {L""}},
        {L"", {L""}},
        {L"app  a\t \tb\nc  ", {L"app", L"a", L"b\nc"}},
        {L" a", {L"", L"a"}}, // blank in front: an empty name
        {LR"("C:\my dir\"app x)", {LR"(C:\my dir\app)", L"x"}},
        {LR"(a\"b c" d)", {LR"(a\b c)", L"d"}}, // no escape in the name
        {LR"(app "a b" c"d e"f)", {L"app", L"a b", L"cd ef"}},
        {LR"(app "" x)", {L"app", L"", L"x"}},
        {LR"(app "a b)", {L"app", L"a b"}},
        {LR"(app \"a b\")", {L"app", LR"("a)", LR"(b")"}},
        {LR"(app "a \" b" c)", {L"app", LR"(a " b)", L"c"}},
        {LR"(app \\a\b\\ c)", {L"app", LR"(\\a\b\\)", L"c"}},
        {LR"(app "a\\" b)", {L"app", LR"(a\)", L"b"}},
        {LR"(app a\\\"b\\)", {L"app", LR"(a\"b\\)"}},
        {LR"(app "a""b c" d)", {L"app", LR"(a"b)", L"c d"}}, // a doubled quote ends the quoted part
        {LR"(app "a"")", {L"app", LR"(a")"}},
        {LR"(app "a\\""b" c)", {L"app", LR"(a\"b c)"}},
    };
    for (const auto& row : rows) {
        CAPTURE(String(row.first));
        CHECK(split(row.first) == row.second);
    }
}

TEST_CASE("named arguments are found by their whole name")
{
    const wchar_t* line = LR"(a=1 position=12 Position=13 position=14 "key 	=v w" late =x empty= x=a=b)";
    const std::pair<const wchar_t*, String> rows[] = {
        {L"a", L"1"},    {L"position", L"12"}, {L"Position", L"13"}, {L"pos", L"?"}, {L"key", L"v w"},
        {L"late", L"?"}, {L"empty", L""},      {L"x", L"a=b"},       {L"", L"x"},    {L"none", L"?"},
    };
    for (const auto& row : rows) {
        CAPTURE(row.first);
        CHECK(orvi::parseArgumentString(line, row.first, L"?") == row.second);
    }
    CHECK(orvi::parseArgumentString(line, L"none", nullptr).isEmpty());
}

TEST_CASE("lines on both sides of what fits on the stack have all their arguments")
{
    for (const int length : {510, 511, 512, 513, 5000}) {
        String line;
        CHECK(line.format(L"n=1 %0*d", length - 4, 7) == length);
        CHECK(orvi::parseArgumentInt(line, L"n", 0) == 1);
    }
}

TEST_CASE("named numbers are read as far as they are numbers")
{
    const std::pair<const wchar_t*, std::int64_t> rows[] = {
        {L"\"n= \t-12x\"", -12},
        {L"n=+7.5", 7},
        {L"n=x", 0},
        {L"n=", -1},
        {L"m=1", -1},
        {L"n=2147483648", 2147483648},
        {L"n=-9223372036854775808", INT64_MIN},
        {L"n=9223372036854775808", INT64_MAX},
    };
    for (const auto& row : rows) {
        CAPTURE(row.first);
        const auto held = static_cast<int>(std::clamp<std::int64_t>(row.second, INT_MIN, INT_MAX));
        CHECK(orvi::parseArgumentInt(row.first, L"n", -1) == held);
        CHECK(orvi::parseArgumentInt64(row.first, L"n", -1) == row.second);
    }
}

TEST_CASE("tokens, spaces, lines and comments come off the front")
{
    for (const auto& [text, token] :
         {std::pair(L"ab_1=2", L"ab_1"), {L"=2", L""}, {L"whole", L"whole"}, {L"a\u00e9b", L"a"}}) {
        String rest(text);
        CHECK(orvi::readToken(rest) == token);
        CHECK(token + rest == text);
    }
    CHECK(after(orvi::skipSpaces, L" \t\r\n a ") == L"a ");
    CHECK(after(orvi::skipLine, L"a\r\n\nb") == L"\nb");
    CHECK(after(orvi::skipComments, L" # one\n\n\t#two\r\n  x # y\n") == L"x # y\n");
    CHECK(after(orvi::skipComments, L"# no end") == L"");
    String many; // some 10^12 characters would be moved if each line were cut off alone
    many.format(L"%*d", 1'000'001, 7);
    many.replace(L" ", L"#\n");
    CHECK(after(orvi::skipComments, many) == L"7");
}
