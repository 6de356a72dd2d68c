#include "FaultyIO.h"
#include "RecordingLog.h"
#include "TempDirectory.h"
#include "TextPrinting.h"

#include <orvi/core/File.h>
#include <orvi/core/Json.h>
#include <orvi/core/MemoryFile.h>

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <random>
#include <sstream>
#include <string>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

using orvi::Handle_T;
using orvi::Json;
using orvi::JsonValue;
using orvi::String;
using orvi::StringHelper;

namespace {

String compact(const JsonValue& value) { return Json::convertToString(value, false); }

/** The text as many times. */
String repeat(int times, const wchar_t* text)
{
    std::vector<wchar_t> units;
    for (; times > 0; --times)
        for (const wchar_t* p = text; *p != 0; ++p)
            units.push_back(*p);
    return String(units.data(), static_cast<int>(units.size()));
}

std::string utf8(const String& text) { return StringHelper::wideToUtf8(text).getBuffer(); }

/** Parses over a value that is there, which a failure must not touch; null when it is malformed. */
const wchar_t* parseOver5(const wchar_t* text, JsonValue& value)
{
    value = 5;
    const wchar_t* end = Json::parseValue(text, value);
    if (end == nullptr)
        CHECK((value.type() == JsonValue::intValue && value == 5));
    return end;
}

std::string contentOf(const std::filesystem::path& path)
{
    std::ostringstream content;
    content << std::ifstream(path, std::ios::binary).rdbuf();
    return content.str();
}

} // namespace

TEST_CASE("text becomes a value up to the end of that value, or nothing")
{
    const struct {
        const wchar_t *text, *value, *rest;
    } rows[] = {
        {L"/* a */ // b\n12 tail", L"12", L" tail"},
        {L" \t\n\v\f\rnull", L"null", L""},
        {L"truest", L"true", L"st"},
        {L"false,", L"false", L","},
        {L"nullx", L"null", L"x"},
        {L"/*/*/1", L"1", L""},
        {L"/***/1/*", L"1", L"/*"},
        {L"//\r1\n2", L"2", L""},
        {L"[ ]x", L"[]", L"x"},
        {L"{ }]", L"{}", L"]"},
        {L"[1,[],{},\"\",[null]]", L"[1,[],{},\"\",[null]]", L""},
        {L"[ 1 , 2 ]", L"[1,2]", L""},
        {L"{\"b\" : 1,\"a\"\n:\t2}", L"{\"a\":2,\"b\":1}", L""},
        {L"{\"a\":1,\"b\":2,\"a\":[3]}", L"{\"a\":[3],\"b\":2}", L""},
        {L"{\"\":{\"\":1}}", L"{\"\":{\"\":1}}", L""},
        {L"[/*a*/1/*b*/,//c\n2//d\n]", L"[1,2]", L""},
        {L"[/*a*/]", L"[]", L""},
        {L"{/*c*/\"a\": 1 /*d*/}", L"{\"a\":1}", L""},
        {L"{//c\n\"a\":1,/*d*/\"b\":2//e\n,//f\n\"c\":3}", L"{\"a\":1,\"b\":2,\"c\":3}", L""},
        {L"{/*c*/}", L"{}", L""},
        {L"\"/*a*///\"", L"\"/*a*///\"", L""},
        {L"\"a\"b", L"\"a\"", L"b"},
        {L"\"\\\"\\\\\\/\\b\\f\\n\\r\\t\"", L"\"\\\"\\\\/\\b\\f\\n\\r\\t\"", L""},
        {L"\"\\q\\'\\U\"", L"\"q'U\"", L""},
        {L"\"a\nb\tc\x01\"", L"\"a\\nb\\tc\\u0001\"", L""},
        {L"\"\x7F\x80\xE000\"", L"\"\x7F\x80\xE000\"", L""},
        {L"\"\\u0041\\u00e9\\uFFFF\"", L"\"A\x00E9\xFFFF\"", L""},
        {L"\"a\\u0000b\"", L"\"ab\"", L""},
        {L"\"\\u001f\"", L"\"\\u001f\"", L""},
        {L"\"\\uD83D\\uDE00\"", L"\"\xD83D\xDE00\"", L""},
        {L"\"\xD83D\"", L"\"\xD83D\"", L""},
        {L"\"<\\uDE00>\"", L"\"<>\"", L""},
        {L"\"<\\uD83D>\"", L"\"<>\"", L""},
        {L"\"<\\uD83D\"", L"\"<\"", L""},
        {L"\"<\\uD83D\\n>\"", L"\"<\\n>\"", L""},
        {L"\"<\\uD83D\\u0041>\"", L"\"<>\"", L""},
        {L"\"<\\uD83D\\uE000>\"", L"\"<>\"", L""},
        {L"\"<\\uD83D\\uD83D\\uDE00>\"", L"\"<>\"", L""},
        {L"\"<\\uD83D\\\\uDE00>\"", L"\"<\\\\uDE00>\"", L""},
        {L"{\"\\u0061\":1,\"a\":2}", L"{\"a\":2}", L""},
    };
    for (const auto& row : rows) {
        CAPTURE(row.text);
        JsonValue value;
        const wchar_t* const end = parseOver5(row.text, value);
        REQUIRE(end != nullptr);
        CHECK(compact(value) == row.value);
        CHECK(String(end) == row.rest);
    }
    const wchar_t* const malformed =
        LR"x(| ||True|nul|fals|// only|/**/|/1|/|/*/1|'a'|]|.5|+1|-e5|-.|-.e1|inf|nan|-E)x"
        LR"x(|[1,]|[,1]|[1 2]|[1,2|[|[1}|{"a":1,}|{a:1}|{1:1}|{"a"}|{"a":}|{"a" 1}|{"a":1|{"a":1]|{"a|{|{"a":1 "b":2})x"
        LR"x(|{"a"/*c*/:1}|{"a":/*c*/1}|[/*|[1,/*|[1/*]|{/*|{"a":1,/*|{"a":1/*|[1,//|[/|[1/2])x"
        LR"x(|"\u123"|"\u123","4"|"\u"|"\u12g4"|"\u 123"|"\u0x41"|"\uD83D\uDE0"|"\uD83D\u"|"\u12|"a|"a\|"a\")x"
        L"|\xFEFF[]|\x00A0[]|\"\\u00\xFF11\xFF11\"|";
    for (const wchar_t *begin = malformed, *p = begin; *p != 0; ++p) {
        if (*p != '|')
            continue;
        const String text(begin, static_cast<int>(p - begin));
        CAPTURE(text);
        JsonValue value;
        CHECK(parseOver5(text, value) == nullptr);
        begin = p + 1;
    }
    JsonValue value;
    CHECK(parseOver5(nullptr, value) == nullptr);
}

TEST_CASE("numbers stay integers as long as they fit")
{
    using enum JsonValue::ValueType;
    const struct {
        const wchar_t* text;
        JsonValue::ValueType type;
        const wchar_t *value, *rest;
    } rows[] = {
        {L"0", uintValue, L"0", L""},
        {L"-0", intValue, L"0", L""},
        {L"007", uintValue, L"7", L""},
        {L"0x10", uintValue, L"0", L"x10"},
        {L"-", intValue, L"0", L""},
        {L"-a", intValue, L"0", L"a"},
        {L"--1", intValue, L"0", L"-1"},
        {L"-inf", intValue, L"0", L"inf"},
        {L"1+2", uintValue, L"1", L"+2"},
        {L"18446744073709551615", uintValue, L"18446744073709551615", L""},
        {L"18446744073709551616", realValue, L"1.844674407370955e+19", L""},
        {L"18446744073709551620x", realValue, L"1.844674407370955e+19", L"x"},
        {L"00000000018446744073709551615", uintValue, L"18446744073709551615", L""},
        {L"-9223372036854775808", intValue, L"-9223372036854775808", L""},
        {L"-9223372036854775809", realValue, L"-9.223372036854776e+18", L""},
        {L"9223372036854775808", uintValue, L"9223372036854775808", L""},
        {L"1.5", realValue, L"1.5", L""},
        {L"1.", realValue, L"1", L""},
        {L"1..", realValue, L"1", L"."},
        {L"-.5", realValue, L"-0.5", L""},
        {L"-0.0", realValue, L"-0", L""},
        {L"1e3", realValue, L"1000", L""},
        {L"1E+3]", realValue, L"1000", L"]"},
        {L"1e", realValue, L"1", L"e"},
        {L"1e+", realValue, L"1", L"e+"},
        {L"1.5e-x", realValue, L"1.5", L"e-x"},
        {L"1e400", realValue, L"inf", L""},
        {L"-1e-400", realValue, L"-0", L""},
        {L"5e-324", realValue, L"4.940656458412465e-324", L""},
        {L"1e99999999999999999999", realValue, L"inf", L""},
        {L"0e99999999999999999999", realValue, L"0", L""},
    };
    for (const auto& row : rows) {
        CAPTURE(row.text);
        JsonValue value;
        const wchar_t* const end = parseOver5(row.text, value);
        REQUIRE(end != nullptr);
        CHECK(value.type() == row.type);
        CHECK(value.asString() == row.value);
        CHECK(String(end) == row.rest);
    }
}

TEST_CASE("long strings, escaped or not")
{
    for (const int length : {8190, 8191, 8192, 8193, 100'000}) {
        CAPTURE(length);
        const String plain = repeat(length, L"x");
        const String escaped = repeat(length, L"\\t");
        JsonValue value;
        CHECK(*Json::parseValue(L"\"" + plain + L"\";", value) == ';');
        CHECK(value == plain);
        CHECK(compact(value) == L"\"" + plain + L"\"");
        CHECK(*Json::parseValue(L"\"" + escaped + L"\";", value) == ';');
        CHECK(value == repeat(length, L"\t"));
        CHECK(compact(value) == L"\"" + escaped + L"\"");
        CHECK(parseOver5(L"\"" + plain, value) == nullptr);
        CHECK(parseOver5(L"\"" + escaped + L"\\", value) == nullptr);
    }
}

TEST_CASE("nesting is bounded")
{
    const struct {
        const wchar_t *open, *close;
        int levels;
    } kinds[] = {{L"[", L"]", 1}, {L"{\"a\":", L"}", 1}, {L"[{\"\":", L"}]", 2}};
    for (const auto& kind : kinds) {
        CAPTURE(kind.open);
        JsonValue value;
        const int most = 1024 / kind.levels;
        const String text = repeat(most, kind.open) + L"1" + repeat(most, kind.close);
        REQUIRE(parseOver5(text, value) != nullptr);
        CHECK(compact(value) == text);
        CHECK(parseOver5(L"[" + text + L"]", value) == nullptr);
        CHECK(parseOver5(L"[0,[]," + text + L"]", value) == nullptr);
        CHECK(parseOver5(repeat(1'000'000, kind.open), value) == nullptr);
    }
    JsonValue value;
    CHECK(parseOver5(repeat(1024, L"[") + repeat(1024, L"]"), value) != nullptr);
    CHECK(parseOver5(repeat(1025, L"[") + repeat(1025, L"]"), value) == nullptr);
    // Siblings are no levels.
    CHECK(parseOver5(L"[" + repeat(5000, L"[{}],") + L"[[]]]", value) != nullptr);
    CHECK(value.size() == 5001);
}

TEST_CASE("objects of many members, in any order, with keys that repeat")
{
    std::mt19937 random(3);
    for (const int count : {1, 2, 23, 24, 25, 26, 300, 3000}) {
        CAPTURE(count);
        for (const int distinct : {count, count / 3 + 1}) {
            JsonValue expected = JsonValue::objectValue;
            String text = L"[{";
            for (int i = 0; i < count; ++i) {
                String key;
                key.format(L"key%d", static_cast<int>(random() % static_cast<unsigned>(distinct)));
                expected[key] = i;
                String member;
                member.format(L"%s\"%s\":%d", i > 0 ? L"," : L"", key.getBuffer(), i);
                text += member;
            }
            JsonValue value;
            REQUIRE(parseOver5(text + L"},{}]", value) != nullptr);
            CHECK(value[0] == expected);
            value[0][L"kez"] = 1; // in order and out of it, behind what was parsed
            value[0][L"a"] = 2;
            expected[L"kez"] = 1;
            expected[L"a"] = 2;
            CHECK(compact(value[0]) == compact(expected));
        }
    }
    String text = L"["; // keys that begin like others
    for (int i = 0; i < 2000; ++i)
        text += L"{\"" + repeat(i * 7 % 31 + 1, i % 2 == 0 ? L"a" : L"b") + L"\":0},";
    text += L"{}]";
    JsonValue value;
    REQUIRE(parseOver5(text, value) != nullptr);
    CHECK(compact(value) == text);
}

TEST_CASE("both printed forms")
{
    JsonValue value;
    value[L"b"][0] = 2;
    value[L"b"][1] = true;
    value[L"a"] = 1;
    CHECK(compact(value) == L"{\"a\":1,\"b\":[2,true]}");
    CHECK(Json::convertToString(value, true) ==
          L"{\n    \"a\" : 1,\n    \"b\" : [\n        2,\n        true\n    ]\n}");
    value.clear();
    value[1] = JsonValue::arrayValue; // gaps print as null, what lies beyond the size is left out
    value[2] = JsonValue::objectValue;
    value[8] = 8;
    CHECK(compact(value) == L"[null,[],{}]");
    CHECK(Json::convertToString(value, true) == L"[\n    null,\n    [\n    ],\n    {\n    }\n]");
    CHECK(Json::convertToString(JsonValue::arrayValue, true) == L"[\n]");
    CHECK(Json::convertToString(JsonValue(), true) == L"null");

    value = String(L" \0\"\\\b\f\n\r\t\x01\x1F/\x7F\xD800", 14);
    CHECK(compact(value) == L"\" \\u0000\\\"\\\\\\b\\f\\n\\r\\t\\u0001\\u001f/\x7F\xD800\"");
    JsonValue object;
    object[value.asString()] = 1;
    CHECK(compact(object) == L"{" + compact(value) + L":1}");
}

TEST_CASE("doubles print as the format %.16g and parse as the C library does")
{
    std::mt19937_64 random(5);
    const auto check = [](const JsonValue& value, const String& text) {
        JsonValue parsed;
        const wchar_t* const end = Json::parseValue(text, parsed);
        const double expected = std::strtod(utf8(text).c_str(), nullptr);
        const double got = parsed.asDouble();
        if (end == nullptr || *end != 0 || (std::memcmp(&got, &expected, sizeof got) != 0 && got != 0))
            FAIL(utf8(text).c_str()); // CHECK is slow
        if (value.isNumber() && value.asString() != text)
            FAIL(utf8(text).c_str());
    };
    String text;
    for (int i = 0; i < 300'000; ++i) {
        const std::uint64_t bits = random();
        double value = 0;
        std::memcpy(&value, &bits, sizeof value);
        if (i % 3 == 0) // of common size
            value = static_cast<double>(static_cast<std::int64_t>(bits)) /
                    static_cast<double>(random() % 100'000 + 1);
        text.format(L"%.16g", value);
        if (value - value == 0)
            check(value, text);
        else
            CHECK(JsonValue(value).asString() == text);
    }
    for (int i = 0; i < 300'000; ++i) {
        const std::uint64_t digits = random() >> random() % 64;
        const int exponent = static_cast<int>(random() % 700) - 350;
        text.format(L"%s%llu.%lluE%d", i % 3 == 0 ? L"-" : L"", digits, random() >> random() % 64, exponent);
        check({}, text);
    }
    for (int i = -100'000; i < 100'000; i += 7) { // short decimals come back as they are
        text.format(L"%.16g", i / 1000.0);
        check(i / 1000.0, text);
    }
}

TEST_CASE("a value is written to an output, or the failure is told")
{
    JsonValue small;
    Json::parseValue(L"{\"a\":[1,-2.5,\"\\u0001\xD83D\xDE00\"],\"b\":null}", small);
    JsonValue large = small;
    for (int i = 0; i < 40; ++i)
        large[L"c"][i] = repeat(400, i % 2 == 0 ? L"ab" : L"\n");
    for (const bool pretty : {false, true}) {
        const String text = Json::convertToString(small, pretty);
        const std::string units(reinterpret_cast<const char*>(text.getBuffer()),
                                static_cast<std::size_t>(text.getBufferLength()) - 2);
        const int size = static_cast<int>(units.size());
        for (int room = 0; room <= size; ++room) {
            const Handle_T<FaultyIO> io = FaultyIO::create();
            io->room = room;
            REQUIRE(Json::writeValue(small, io, pretty) == (room == size));
            REQUIRE(io->bytes == units.substr(0, static_cast<std::size_t>(room)));
        }
        const std::string bytes = utf8(text);
        for (int room = 0; room <= static_cast<int>(bytes.size()); ++room) {
            const Handle_T<FaultyIO> io = FaultyIO::create();
            io->room = room;
            const bool written = Json::write(small, io, pretty);
            REQUIRE(written == (io->bytes == bytes));
        }
        const String largeText = Json::convertToString(large, pretty);
        const int largeSize = largeText.getBufferLength() - 2;
        CHECK(largeSize > 30'000);
        for (int room = 0; room <= largeSize; room += room == 0 ? largeSize % 997 : 997) {
            const Handle_T<FaultyIO> io = FaultyIO::create();
            io->room = room;
            REQUIRE(Json::writeValue(large, io, pretty) == (room == largeSize));
            REQUIRE(std::memcmp(io->bytes.data(), largeText.getBuffer(), io->bytes.size()) == 0);
        }
    }
    CHECK(!Json::writeValue(small, nullptr, false));
    CHECK(!Json::write(small, nullptr, false));
}

TEST_CASE("values travel through streams and files as UTF-8")
{
    const TempDirectory directory;
    JsonValue value;
    value[L"\xD83D\xDE00"] = L"\x00E4\x20AC\xD83D\xDE00\xDBFF\xDFFF\"\n\x7F";
    value[L"list"][2] = 2.0;
    value[L"list"][0] = -1;
    for (const bool pretty : {false, true}) {
        const Handle_T<orvi::MemoryFile> memory = orvi::MemoryFile::createInstance();
        REQUIRE(Json::write(value, memory, pretty));
        memory->setPosition(0);
        JsonValue read;
        REQUIRE(Json::read(read, memory));
        JsonValue expected = value; // the gap has become a null, the entry behind the size is gone
        expected[L"list"].clear();
        expected[L"list"][0] = -1;
        expected[L"list"][1] = JsonValue();
        CHECK(read == expected);
        CHECK(Json::convertToString(read, pretty) == Json::convertToString(value, pretty));

        const String path = directory.name("value");
        std::ofstream(directory / "value") << std::string(10'000, 'x'); // is replaced
        REQUIRE(Json::save(value, path, pretty));
        CHECK(contentOf(directory / "value") == utf8(Json::convertToString(value, pretty)));
        read.clear();
        REQUIRE(Json::load(read, path));
        CHECK(read == expected);
        REQUIRE(Json::load(read, L"memory://<<file://" + path));
        CHECK(read == expected);
    }
    std::ofstream(directory / "two") << "[1] {\"a\":2} rest";
    std::ofstream(directory / "mark") << "\xEF\xBB\xBF[1]";
    std::ofstream(directory / "malformed") << "[1,2";
    std::ofstream(directory / "empty");
    const struct {
        const char* what;
        String path;
        const wchar_t* value; // null: it fails
    } rows[] = {
        {"the first value", directory.name("two"), L"[1]"},
        {"from a position on", directory.name("two") + L"?position=4", L"{\"a\":2}"},
        {"a byte order mark", directory.name("mark"), nullptr},
        {"behind the mark", L"file://" + directory.name("mark") + L"?position=3", L"[1]"},
        {"malformed", directory.name("malformed"), nullptr},
        {"empty", directory.name("empty"), nullptr},
        {"missing", directory.name("missing"), nullptr},
        {"a directory", directory.name("."), nullptr},
        {"an unknown scheme", L"nowhere://x", nullptr},
        {"nothing", L"", nullptr},
    };
    for (const auto& row : rows) {
        CAPTURE(row.what);
        JsonValue read = 5;
        REQUIRE(Json::load(read, row.path) == (row.value != nullptr));
        CHECK(compact(read) == (row.value != nullptr ? row.value : L"5"));
    }
    JsonValue read = 5;
    CHECK((!Json::read(read, nullptr) && read == 5));
    const Handle_T<FaultyIO> failing = FaultyIO::create("[1,2,3]");
    failing->readsUntil = 3; // the text ends where the source fails
    CHECK((!Json::read(read, failing) && read == 5));

    const RecordingLog log;
    CHECK(!Json::save(value, directory.name("."), false));
    CHECK(!Json::save(value, directory.name("missing/value"), false));
    CHECK(!Json::save(value, L"", false));
    CHECK(!Json::save(value, L"/dev/full", true));
    CHECK(log.errors().size() == 3); // none for the empty name
}

namespace {

namespace fs = std::filesystem;

/** The permissions of a file behind its links; 0 without one. */
mode_t modeOf(const fs::path& path)
{
    struct stat status {};
    stat(path.c_str(), &status);
    return status.st_mode & 07777;
}

template <class Body>
bool isTrueInChild(Body body)
{
    const pid_t child = fork();
    REQUIRE(child >= 0);
    if (child == 0)
        _exit(body() ? 0 : 1);
    int status = -1;
    REQUIRE(waitpid(child, &status, 0) == child);
    return status == 0;
}

/** Kills a program that saves two documents in turn; after each time one of them stands there whole. */
void killSavers(int times)
{
    const TempDirectory directory;
    const String path = directory.name("document");
    const JsonValue documents[] = {repeat(3'000, L"long "), L"short"};
    REQUIRE(Json::save(documents[0], path, false));
    std::minstd_rand random(7);
    for (int i = 0; i < times; ++i) {
        const pid_t child = fork();
        REQUIRE(child >= 0);
        if (child == 0) {
            for (unsigned int turn = 0;; ++turn)
                Json::save(documents[turn % 2], path, false);
        }
        usleep(static_cast<useconds_t>(random() % 5'000));
        kill(child, SIGKILL);
        int status = -1;
        REQUIRE(waitpid(child, &status, 0) == child);
        JsonValue found;
        REQUIRE(Json::load(found, path));
        REQUIRE((found == documents[0] || found == documents[1]));
    }
}

} // namespace

TEST_CASE("a save that fails leaves the old document, and one that does not keeps its links and permissions")
{
    const TempDirectory directory;
    const auto save = [&](const char* name) { return Json::save(2, directory.name(name), false); };
    fs::create_directories(directory / "locked");
    chmod(directory.path().c_str(), 0777);
    for (const char* name : {"document", "closed", "locked/document"})
        std::ofstream(directory / name) << "1";
    chmod((directory / "document").c_str(), 0646);
    chmod((directory / "locked/document").c_str(), 0666);
    fs::create_symlink("../document", directory / "locked/link");
    fs::create_symlink(directory / "locked/link", directory / "link");
    fs::create_symlink("locked/new", directory / "dangling");
    fs::create_symlink("round", directory / "round");

    CHECK(isTrueInChild([&] {
        constexpr uid_t nobody = 65534;
        if (geteuid() == 0 && (setgid(nobody) != 0 || setuid(nobody) != 0)) // root may do everything
            return false;
        chmod((directory / "locked").c_str(), 0555); // of another user's, but for one who is not root
        chmod((directory / "closed").c_str(), 0444);
        return !save("closed") && !save("locked/document") && !save("dangling");
    }));
    CHECK(contentOf(directory / "closed") + contentOf(directory / "locked/document") == "11");
    CHECK(isTrueInChild([&] {
        const rlimit none{0, 0};
        setrlimit(RLIMIT_FSIZE, &none);
        return !save("document") && !save("new");
    }));
    CHECK(contentOf(directory / "document") == "1");
    CHECK(!save("round"));

    CHECK(save("link"));
    CHECK(contentOf(directory / "document") == "2");
    CHECK(modeOf(directory / "document") == 0646);
    CHECK(fs::is_symlink(directory / "link"));
    chmod((directory / "locked").c_str(), 0755);
    CHECK(save("dangling"));
    CHECK(contentOf(directory / "locked/new") == "2");
    const mode_t mask = umask(0);
    umask(mask);
    CHECK(modeOf(directory / "locked/new") == (0666 & ~mask));
    CHECK(fs::is_symlink(directory / "dangling"));
    CHECK(save(std::string(255, 'n').c_str()));
    CHECK(!save(std::string(256, 'n').c_str()));
    int ends[2];
    REQUIRE(pipe(ends) == 0);
    const String pipePath = StringHelper::utf8ToWide(("/dev/fd/" + std::to_string(ends[1])).c_str());
    char digit = 0;
    CHECK((Json::save(2, pipePath, false) && read(ends[0], &digit, 1) == 1 && digit == '2'));
    close(ends[0]);
    close(ends[1]);
    CHECK(!Json::save(2, L"/dev/full", false));
    CHECK(fs::is_character_file("/dev/full"));
    for (const auto& entry : fs::recursive_directory_iterator(directory.path()))
        CHECK(entry.path().filename().string().find(".orvi") != 0);
}

TEST_CASE("a program that is killed while it saves leaves a whole document") { killSavers(20); }

TEST_CASE("long: the same many times" * doctest::skip()) { killSavers(2'000); }
