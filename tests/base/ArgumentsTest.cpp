#include "TextPrinting.h"

#include <orvi/core/Arguments.h>

#include <climits>
#include <cstdint>
#include <cstdlib>
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

    int entries = 0;
    int characters = 0;
    orvi::parseArguments(commandLine, nullptr, nullptr, &entries, &characters);
    CHECK(entries == argc + 1);
    std::vector<wchar_t*> table(static_cast<std::size_t>(entries));
    std::vector<wchar_t> text(
        static_cast<std::size_t>(characters)); // exactly: the sanitizer sees one too many
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
    const struct {
        const char* what;
        const wchar_t* line;
        std::vector<String> expected;
    } rows[] = {
        {"null", nullptr, {L""}},
        {"nothing", L"", {L""}},
        {"name only", L"app", {L"app"}},
        {"blanks and tabs", L"app  a\t \tb  ", {L"app", L"a", L"b"}},
        {"blank in front: an empty name", L" a", {L"", L"a"}},
        {"line feeds are text", L"app a\nb", {L"app", L"a\nb"}},
        {"quoted name", LR"("C:\my dir\"app x)", {LR"(C:\my dir\app)", L"x"}},
        {"no escape in the name", LR"(a\"b c" d)", {LR"(a\b c)", L"d"}},
        {"open quote in the name", LR"("a b)", {L"a b"}},
        {"quoted argument", LR"(app "a b" c"d e"f)", {L"app", L"a b", L"cd ef"}},
        {"empty argument", LR"(app "" x)", {L"app", L"", L"x"}},
        {"open quote", LR"(app "a b)", {L"app", L"a b"}},
        {"escaped quote", LR"(app \"a b\")", {L"app", LR"("a)", LR"(b")"}},
        {"escaped quote in quotes", LR"(app "a \" b" c)", {L"app", LR"(a " b)", L"c"}},
        {"backslashes before other text", LR"(app \\a\b\\ c)", {L"app", LR"(\\a\b\\)", L"c"}},
        {"two backslashes and a quote", LR"(app "a\\" b)", {L"app", LR"(a\)", L"b"}},
        {"three backslashes and a quote", LR"(app a\\\"b)", {L"app", LR"(a\"b)"}},
        {"backslashes at the end", LR"(app a\\)", {L"app", LR"(a\\)"}},
        {"doubled quote ends the quoted part", LR"(app "a""b c" d)", {L"app", LR"(a"b)", L"c d"}},
        {"doubled quote at the end", LR"(app "a"")", {L"app", LR"(a")"}},
        {"doubled quote behind backslashes", LR"(app "a\\""b" c)", {L"app", LR"(a\"b c)"}},
    };
    for (const auto& row : rows) {
        CAPTURE(row.what);
        CHECK(split(row.line) == row.expected);
    }
}

TEST_CASE("either table may be missing")
{
    int entries = 0;
    int characters = 0;
    wchar_t text[6];
    orvi::parseArguments(L"ab cd", nullptr, text, &entries, &characters);
    CHECK(entries == 3);
    CHECK(characters == 6);
    CHECK(String(text + 3) == L"cd");
    wchar_t* table[3] = {text, text, text};
    orvi::parseArguments(L"ab cd", table, nullptr, &entries, &characters);
    CHECK(table[0] == nullptr);
    CHECK(table[2] == nullptr);
}

TEST_CASE("named arguments are found by their whole name")
{
    const wchar_t* line = LR"(a=1 position=12 Position=13 position=14 "key 	=v w" late =x empty= x=a=b)";
    const struct {
        const wchar_t* name;
        String expected;
    } rows[] = {
        {L"a", L"1"},    {L"position", L"12"}, {L"Position", L"13"}, {L"pos", L"?"}, {L"key", L"v w"},
        {L"late", L"?"}, {L"empty", L""},      {L"x", L"a=b"},       {L"", L"x"},    {L"none", L"?"},
    };
    for (const auto& row : rows) {
        CAPTURE(String(row.name));
        CHECK(orvi::parseArgumentString(line, row.name, L"?") == row.expected);
    }
    CHECK(orvi::parseArgumentString(line, L"none", nullptr).isEmpty());
}

TEST_CASE("named numbers are read as far as they are numbers")
{
    const struct {
        const wchar_t* line;
        int expected;
        std::int64_t expected64;
    } rows[] = {
        {L"n=12", 12, 12},
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
        CAPTURE(String(row.line));
        CHECK(orvi::parseArgumentInt(row.line, L"n", -1) == row.expected);
        CHECK(orvi::parseArgumentInt64(row.line, L"n", -1) == row.expected64);
    }
}

TEST_CASE("tokens come off the front")
{
    const struct {
        const wchar_t* text;
        String token;
        String rest;
    } rows[] = {
        {L"ab_1=2", L"ab_1", L"=2"},     {L"=2", L"", L"=2"}, {L"", L"", L""}, {L"whole", L"whole", L""},
        {L"a\u00e9b", L"a", L"\u00e9b"}, {L" a", L"", L" a"},
    };
    for (const auto& row : rows) {
        String rest(row.text);
        CHECK(orvi::readToken(rest) == row.token);
        CHECK(rest == row.rest);
    }
}

TEST_CASE("spaces, lines and comments come off the front")
{
    CHECK(after(orvi::skipSpaces, L" \t\r\n a ") == L"a ");
    CHECK(after(orvi::skipLine, L"a\r\n\nb") == L"\nb");
    CHECK(after(orvi::skipLine, L"no end") == L"");
    CHECK(after(orvi::skipLine, L"last\n") == L"");
    CHECK(after(orvi::skipComments, L" # one\n\n\t#two\r\n  x # y\n") == L"x # y\n");
    CHECK(after(orvi::skipComments, L"# no end") == L"");
    CHECK(after(orvi::skipComments, L"x\n# y") == L"x\n# y");
    CHECK(after(orvi::skipComments, L" \n ") == L"");
}

TEST_CASE("many lines of comment take no more than their length")
{
    constexpr std::size_t lines = 2'000'000;
    std::vector<wchar_t> text(lines * 2);
    for (std::size_t i = 0; i < text.size(); i += 2) {
        text[i] = L'#';
        text[i + 1] = L'\n';
    }
    text.push_back(L'x');
    text.push_back(0);
    CHECK(after(orvi::skipComments, text.data()) ==
          L"x"); // some 10^12 characters if each line were cut off alone
}
