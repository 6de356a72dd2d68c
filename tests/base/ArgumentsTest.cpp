#include "TextPrinting.h"

#include <orvi/core/Arguments.h>

#include <climits>
#include <cstdint>
#include <cstdlib>
#include <utility>
#include <vector>

using orvi::String;

namespace {

/** Through the form with one block, checked against the one that counts first. */
std::vector<String> split(const wchar_t* commandLine)
{
    wchar_t** argv = nullptr;
    int argc = 0;
    orvi::parseArguments(commandLine, argv, argc);
    REQUIRE(argv != nullptr);
    CHECK(argv[argc] == nullptr);
    const std::vector<String> arguments(argv, argv + argc);
    std::free(argv);

    int entries = 0, characters = 0;
    orvi::parseArguments(commandLine, nullptr, nullptr, &entries, &characters);
    CHECK(entries == argc + 1);
    std::vector<wchar_t*> table(static_cast<std::size_t>(entries));
    std::vector<wchar_t> text(static_cast<std::size_t>(characters)); // the sanitizer sees one too many
    orvi::parseArguments(commandLine, table.data(), text.data(), &entries, &characters);
    CHECK(table.back() == nullptr);
    CHECK(std::vector<String>(table.begin(), table.end() - 1) == arguments);
    CHECK(static_cast<std::size_t>(characters) == text.size());
    return arguments;
}

/** What is left of a text. */
template <class Operation>
String after(Operation operation, const wchar_t* text)
{
    String rest(text);
    operation(rest);
    return rest;
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

TEST_CASE("either table may be missing")
{
    int entries = 0, characters = 0;
    wchar_t text[6];
    wchar_t* table[3] = {text, text, text};
    orvi::parseArguments(L"ab cd", nullptr, text, &entries, &characters);
    CHECK(entries == 3);
    CHECK(String(text + 3) == L"cd");
    orvi::parseArguments(L"ab cd", table, nullptr, &entries, &characters);
    CHECK(table[0] == nullptr);
    CHECK(table[2] == nullptr);
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
    for (const std::size_t length : {510u, 511u, 512u, 513u, 5000u}) {
        CAPTURE(length);
        std::vector<wchar_t> line{L'n', L'=', L'1', L' '};
        line.resize(length, L'a');
        line.push_back(0);
        CHECK(orvi::parseArgumentInt(line.data(), L"n", 0) == 1);
    }
}

TEST_CASE("named numbers are read as far as they are numbers")
{
    const struct {
        const wchar_t* line;
        int expected;
        std::int64_t expected64;
    } rows[] = {
        {L"\"n= \t-12x\"", -12, -12},
        {L"n=+7.5", 7, 7},
        {L"n=x", 0, 0},
        {L"n=", -1, -1},
        {L"m=1", -1, -1},
        {L"n=2147483648", INT_MAX, 2147483648},
        {L"n=-9223372036854775808", INT_MIN, INT64_MIN},
        {L"n=9223372036854775808", INT_MAX, INT64_MAX},
    };
    for (const auto& row : rows) {
        CAPTURE(row.line);
        CHECK(orvi::parseArgumentInt(row.line, L"n", -1) == row.expected);
        CHECK(orvi::parseArgumentInt64(row.line, L"n", -1) == row.expected64);
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
}

TEST_CASE("many lines of comment take no more than their length")
{
    constexpr std::size_t lines = 1'000'000;
    std::vector<wchar_t> text;
    for (std::size_t i = 0; i < lines; ++i)
        text.insert(text.end(), {L'#', L'\n'});
    text.insert(text.end(), {L'x', L'\0'});
    // Some 10^12 characters if each line were cut off alone.
    CHECK(after(orvi::skipComments, text.data()) == L"x");
}
