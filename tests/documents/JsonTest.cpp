#include "ChildProcess.h"
#include "FaultyIO.h"
#include "JsonText.h"
#include "RecordingLog.h"
#include "TempDirectory.h"
#include "TextPrinting.h"

#include <bit>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <random>
#include <sstream>
#include <string>
#include <sys/resource.h>
#include <sys/stat.h>
#include <utility>
#include <vector>

using namespace orvi;

namespace fs = std::filesystem;

namespace {

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

void killSavers(int rounds)
{
    const TempDirectory directory;
    const String path = directory.name("document");
    const JsonValue documents[] = {repeat(3'000, L"long "), L"short"};
    REQUIRE(Json::save(documents[0], path, false));
    std::minstd_rand random(7);
    for (int i = 0; i < rounds; ++i) {
        const pid_t child = fork();
        REQUIRE(child >= 0);
        if (child == 0) {
            for (unsigned int turn = 0;; ++turn)
                Json::save(documents[turn % 2], path, false);
        }
        usleep(static_cast<useconds_t>(random() % 5'000));
        kill(child, SIGKILL);
        REQUIRE(waitpid(child, nullptr, 0) == child);
        JsonValue found;
        REQUIRE((Json::load(found, path) && (found == documents[0] || found == documents[1])));
    }
}

} // namespace

TEST_CASE("text becomes a value up to the end of that value, or nothing")
{
    using enum JsonValue::ValueType;
    const struct {
        const wchar_t *text, *value, *rest;
        JsonValue::ValueType numberType = nullValue;
    } rows[] = {
        {L"/* a */ // b\n12 tail", L"12", L" tail", uintValue},
        {L" \t\n\v\f\rnull", L"null", L""},
        {L"false,", L"false", L","},
        {L"/*/*/true", L"true", L""},
        {L"//\r1\n2", L"2", L"", uintValue},
        {L"[1,[ ],{ },\"\",[null]]]", L"[1,[],{},\"\",[null]]", L"]"},
        {L"{\"b\" : 1,\"a\"\n:\t2}}", L"{\"a\":2,\"b\":1}", L"}"},
        {L"{\"a\":1,\"\\u0062\":2,\"\":0,\"a\":[3],\"b\":4}", L"{\"\":0,\"a\":[3],\"b\":4}", L""},
        {L"[/*a*/1/*b*/,//c\n2//d\n]", L"[1,2]", L""},
        {L"{//c\n\"a\":1,/*d*/\"b\":2//e\n,//f\n\"c\":[/**/]}", L"{\"a\":1,\"b\":2,\"c\":[]}", L""},
        {L"\"\\\"\\\\\\/\\b\\f\\n\\r\\t\\q\\'\\U\"", L"\"\\\"\\\\/\\b\\f\\n\\r\\tq'U\"", L""},
        {L"\"a\nb\x01\xD83D\x7F\xE000\"", L"\"a\\nb\\u0001\xD83D\x7F\xE000\"", L""},
        {L"\"\\u0041\\u00e9\\uFFFF\\uD83D\\uDE00<\\u0000>\"", L"\"A\x00E9\xFFFF\xD83D\xDE00<>\"", L""},
        {L"\"<\\uDE00><\\uD83D><\\uD83D\\u0041><\\uD83D\\uE000><\\uD83D\\uD83D\\uDE00>\"", L"\"<><><><><>\"",
         L""},
        {L"\"<\\uD83D\\n><\\uD83D\\\\uDE00>\"", L"\"<\\n><\\\\uDE00>\"", L""},
        {L"\"<\\uD83D\"", L"\"<\"", L""},
        // Numbers stay integers as long as they fit.
        {L"-", L"0", L"", intValue},
        {L"18446744073709551615", L"18446744073709551615", L"", uintValue},
        {L"18446744073709551616x", L"1.844674407370955e+19", L"x", realValue},
        {L"-9223372036854775808", L"-9223372036854775808", L"", intValue},
        {L"-9223372036854775809", L"-9.223372036854776e+18", L"", realValue},
        {L"1..", L"1", L".", realValue},
        {L"1E+3]", L"1000", L"]", realValue},
        {L"1e+", L"1", L"e+", realValue},
        {L"-1e-400", L"-0", L"", realValue},
        {L"1e99999999999999999999", L"inf", L"", realValue},
    };
    JsonValue value;
    for (const auto& row : rows) {
        CAPTURE(row.text);
        const wchar_t* const end = parseOver5(row.text, value);
        REQUIRE(end != nullptr);
        CHECK(compact(value) == row.value);
        CHECK(String(end) == row.rest);
        if (value.isNumber())
            CHECK(value.type() == row.numberType);
    }
    std::istringstream malformed(
        R"(| ||True|nul|fals|// only|/1|/|/*/1|'a'|]|.5|+1|-.|-.e1|inf|nan|-E)"
        "|\u00A0[]|\uFEFF[]"
        R"(|[1,]|[,1]|[1 2]|[1,2|[|[1}|{"a":1,}|{a:1}|{1:1}|{"a":}|{"a" 1}|{"a":1|{"a":1]|{"a|{|{"a":1 "b":2})"
        R"(|{"a"/*c*/:1}|{"a":/*c*/1}|[/*|[1,/*|[1/*]|{/*|{"a":1,/*|{"a":1/*|[1/2]|"a|"a\|"a\")"
        R"(|"\u123"|"\u123","4"|"\u12g4"|"\u 123"|"\uD83D\uDE0"|"\u12)"
        "|\"\\u00\uFF11\uFF11\"");
    for (std::string text; std::getline(malformed, text, '|');) {
        CAPTURE(text);
        CHECK(parseOver5(StringHelper::utf8ToWide(text.c_str()), value) == nullptr);
    }
    CHECK(parseOver5(nullptr, value) == nullptr);
}

TEST_CASE("long strings, escaped or not")
{
    JsonValue value;
    for (const auto& [written, meant] : {std::pair(L"x", L"x"), std::pair(L"\\t", L"\t")}) {
        for (const int length : {12, 13, 8191, 8192, 100'000}) {
            CAPTURE(length);
            const String text = L"\"" + repeat(length, written);
            CHECK(*Json::parseValue(text + L"\";", value) == ';');
            CHECK(value == repeat(length, meant));
            CHECK(compact(value) == text + L"\"");
            CHECK((parseOver5(text, value) == nullptr && parseOver5(text + L"\\", value) == nullptr));
        }
    }
}

TEST_CASE("nesting is bounded")
{
    const struct {
        const wchar_t *open, *inner, *close;
        int most;
    } kinds[] = {{L"[", L"", L"]", 1024}, {L"{\"a\":", L"1", L"}", 1024}, {L"[{\"\":", L"1", L"}]", 512}};
    JsonValue value;
    for (const auto& kind : kinds) {
        CAPTURE(kind.open);
        const String text = repeat(kind.most, kind.open) + kind.inner + repeat(kind.most, kind.close);
        REQUIRE(parseOver5(text, value) != nullptr);
        CHECK((compact(value) == text && parseOver5(L"[0,[]," + text + L"]", value) == nullptr));
        CHECK(parseOver5(repeat(1'000'000, kind.open), value) == nullptr);
    }
    // Siblings are no levels.
    CHECK(parseOver5(L"[" + repeat(5000, L"[{}],") + L"[[]]]", value) != nullptr);
}

TEST_CASE("objects of many members, in any order, with keys that repeat")
{
    std::mt19937 random(3);
    JsonValue value;
    for (const int count : {1, 2, 24, 25, 300, 3000}) {
        CAPTURE(count);
        JsonValue expected = JsonValue::objectValue;
        String text = L"[{";
        for (int i = 0; i < count; ++i) {
            String key, member;
            key.format(L"key%d", static_cast<int>(random() % static_cast<unsigned>(count)));
            expected[key] = i;
            member.format(L"%s\"%s\":%d", i > 0 ? L"," : L"", key.getBuffer(), i);
            text += member;
        }
        REQUIRE((parseOver5(text + L"},{}]", value) != nullptr && value[0] == expected));
        value[0][L"kez"] = expected[L"kez"] = 1; // in order and out of it, behind what was parsed
        value[0][L"a"] = expected[L"a"] = 2;
        CHECK(compact(value[0]) == compact(expected));
    }
    String text = L"[{}"; // keys that begin like others
    for (int i = 0; i < 2000; ++i)
        text += L",{\"" + repeat(i * 7 % 31 + 1, i % 2 == 0 ? L"a" : L"b") + L"\":0}";
    REQUIRE((parseOver5(text + L"]", value) != nullptr && compact(value) == text + L"]"));
}

TEST_CASE("both printed forms")
{
    JsonValue value;
    value[L"b"][0] = 2;
    value[L"b"][2] = JsonValue::arrayValue; // the gap prints as null, what lies beyond the size is left out
    value[L"b"][3] = JsonValue::objectValue;
    value[L"b"][8] = 8;
    value[L"a"] = true;
    value[L"c"] = JsonValue::objectValue;
    CHECK(compact(value) == L"{\"a\":true,\"b\":[2,null,[],{}],\"c\":{}}");
    CHECK(Json::convertToString(value, true) ==
          L"{\n    \"a\" : true,\n    \"b\" : [\n        2,\n        null,\n        [\n        ],\n"
          L"        {\n        }\n    ],\n    \"c\" : {\n    }\n}");

    const JsonValue escaped = String(L" \0\"\\\b\f\n\r\t\x01\x1F/\x7F\xD800", 14);
    const String text = L"\" \\u0000\\\"\\\\\\b\\f\\n\\r\\t\\u0001\\u001f/\x7F\xD800\"";
    CHECK(compact(escaped) == text);
    value = JsonValue::objectValue;
    value[escaped.asString()] = true;
    CHECK(compact(value) == L"{" + text + L":true}");
}

TEST_CASE("doubles print as the format %.16g and parse as the C library does")
{
    std::mt19937_64 random(5);
    String text;
    const auto check = [&](bool good) { // CHECK is slow
        if (!good)
            FAIL(utf8(text).c_str());
    };
    const auto checkParsed = [&] {
        JsonValue parsed;
        const wchar_t* const end = Json::parseValue(text, parsed);
        const double expected = std::strtod(utf8(text).c_str(), nullptr);
        const double got = parsed.asDouble();
        check(end != nullptr && *end == 0 && (std::memcmp(&got, &expected, sizeof got) == 0 || got == 0));
    };
    for (int i = 0; i < 100'000; ++i) {
        const std::uint64_t bits = random();
        for (const double value : {std::bit_cast<double>(bits), static_cast<double>(bits) / (i + 0.5),
                                   (i - 50'000) / 1000.0}) { // any, of common size, short
            text.format(L"%.16g", value);
            check(JsonValue(value).asString() == text);
            if (std::isfinite(value))
                checkParsed();
        }
        text.format(L"%s%llu.%lluE%d", i % 3 == 0 ? L"-" : L"", bits >> i % 64, random() >> random() % 64,
                    static_cast<int>(random() % 700) - 350);
        checkParsed();
    }
}

TEST_CASE("a value is written to an output, or the failure is told")
{
    JsonValue values[2] = {parsed(L"{\"a\":[1,-2.5,\"\\u0001\xD83D\xDE00\"],\"b\":null}")};
    for (int i = 0; i < 40; ++i)
        values[1][L"c"][i] = repeat(400, i % 2 == 0 ? L"ab" : L"\n");
    for (const bool pretty : {false, true}) {
        const JsonValue& value = values[pretty ? 0 : 1];
        const String text = Json::convertToString(value, pretty);
        const std::string bytes = utf8(text);
        const int size = text.getBufferLength() - 2;
        const int step = size > 1000 ? 997 : 1;
        for (int room = size % step; room <= size; room += step) {
            Handle_T<FaultyIO> io = FaultyIO::create();
            io->room = room;
            REQUIRE(Json::writeValue(value, io, pretty) == (room == size));
            REQUIRE(std::memcmp(io->bytes.data(), text.getBuffer(), io->bytes.size()) == 0);
            io = FaultyIO::create();
            io->room = room;
            const bool written = Json::write(value, io, pretty);
            REQUIRE(written == (io->bytes == bytes));
        }
    }
    struct Device : Output { // refuses a part of the first piece alone
        int write(const void*, int size) override { return size - std::exchange(refused, 0); }
        int refused = 1;
    };
    const Handle_T<Device> device = new Device;
    CHECK(!Json::writeValue(values[1], device, false));
    CHECK((!Json::writeValue(values[0], nullptr, false) && !Json::write(values[0], nullptr, false)));
}

TEST_CASE("values travel through streams and files as UTF-8")
{
    const TempDirectory directory;
    const String path = directory.name("value");
    JsonValue value, read;
    value[L"\xD83D\xDE00"] = L"\x00E4\x20AC\xD83D\xDE00\xDBFF\xDFFF\"\n\x7F";
    for (const bool pretty : {false, true}) {
        directory.write("value", std::string(10'000, 'x')); // is replaced
        REQUIRE(Json::save(value, path, pretty));
        CHECK(directory.read("value") == utf8(Json::convertToString(value, pretty)));
        CHECK((Json::load(read, path) && read == value));
    }
    directory.write("two", "[1] {\"a\":2} rest");
    directory.write("mark", "\xEF\xBB\xBF[1]");
    directory.write("malformed", "[1,2");
    const std::pair<String, const wchar_t*> rows[] = {
        {directory.name("two"), L"[1]"},
        {directory.name("two") + L"?position=4", L"{\"a\":2}"},
        {directory.name("mark"), L"5"}, // stays when it fails
        {L"memory://<<file://" + directory.name("mark") + L"?position=3", L"[1]"},
        {directory.name("malformed"), L"5"},
        {directory.name("missing"), L"5"},
        {L"", L"5"},
    };
    for (const auto& [from, expected] : rows) {
        read = 5;
        CHECK(Json::load(read, from) == (expected != String(L"5")));
        CHECK(compact(read) == expected);
    }
    read = 5;
    CHECK((!Json::read(read, nullptr) && read == 5));
    const Handle_T<FaultyIO> failing = FaultyIO::create("[1,2,3]");
    failing->readsUntil = 3; // the text ends where the source fails
    CHECK((!Json::read(read, failing) && read == 5));

    const RecordingLog log;
    for (const String& to :
         {directory.name("."), directory.name("missing/value"), String(), String(L"/dev/full")})
        CHECK(!Json::save(value, to, false));
    CHECK((log.errors().size() == 3 && fs::is_character_file("/dev/full"))); // no word about the empty name
}

TEST_CASE("a save that fails leaves the old document, and one that does not keeps its links and permissions")
{
    const TempDirectory directory;
    const auto save = [&](const char* name) { return Json::save(2, directory.name(name), false); };
    const auto modeOf = [&](const char* name) { return fs::status(directory / name).permissions(); };
    fs::create_directory(directory / "locked");
    fs::permissions(directory.path(), fs::perms(0777));
    for (const char* name : {"document", "closed", "locked/document"})
        directory.write(name, "1");
    fs::permissions(directory / "document", fs::perms(0646));
    fs::permissions(directory / "locked/document", fs::perms(0666));
    fs::create_symlink("../document", directory / "locked/link");
    fs::create_symlink(directory / "locked/link", directory / "link");
    fs::create_symlink("locked/new", directory / "dangling");
    fs::create_symlink("round", directory / "round");

    CHECK(succeedsInChild([&] {
        constexpr uid_t nobody = 65534;
        if (geteuid() == 0) // root may do everything
            REQUIRE((setgid(nobody) == 0 && setuid(nobody) == 0));
        chmod((directory / "locked").c_str(), 0555); // of another user's, but for one who is not root
        chmod((directory / "closed").c_str(), 0444);
        REQUIRE((!save("closed") && !save("locked/document") && !save("dangling")));
    }));
    CHECK(directory.read("closed") + directory.read("locked/document") == "11");
    CHECK(succeedsInChild([&] {
        const rlimit none{0, 0};
        setrlimit(RLIMIT_FSIZE, &none);
        REQUIRE((!save("document") && !save("new")));
    }));
    CHECK((directory.read("document") == "1" && !save("round")));
    CHECK((save("link") && directory.read("document") == "2"));
    CHECK((modeOf("document") == fs::perms(0646) && fs::is_symlink(directory / "link")));
    fs::permissions(directory / "locked", fs::perms(0755));
    CHECK((save("dangling") && directory.read("locked/new") == "2"));
    const mode_t mask = umask(0);
    umask(mask);
    CHECK((modeOf("locked/new") == fs::perms(0666 & ~mask) && fs::is_symlink(directory / "dangling")));
    CHECK((save(std::string(255, 'n').c_str()) && !save(std::string(256, 'n').c_str())));
    int ends[2];
    REQUIRE(pipe(ends) == 0);
    const String pipePath = StringHelper::utf8ToWide(("/dev/fd/" + std::to_string(ends[1])).c_str());
    char digit = 0;
    CHECK((Json::save(2, pipePath, false) && read(ends[0], &digit, 1) == 1 && digit == '2'));
    close(ends[0]);
    close(ends[1]);
    for (const auto& entry : fs::recursive_directory_iterator(directory.path()))
        CHECK(entry.path().filename().string().find(".orvi") != 0);
}

TEST_CASE("a program that is killed while it saves leaves a whole document") { killSavers(20); }

TEST_CASE("long: the same many times" * doctest::skip()) { killSavers(2'000); }
