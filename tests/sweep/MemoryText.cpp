#include "MemorySweep.h"

#include <algorithm>
#include <cstdlib>

using namespace orvi;
using sweep::Seen;

namespace {

/** Each change by itself: it is made, or the text stays. */
template <class T>
void changes(Seen& seen)
{
    using Text = String_T<T>;
    static const T a[] = {'a', 0}, bc[] = {'b', 'c', 0}, text[] = {' ', 'a', 'b', 'c', 'a', 'b', ' ', 0};
    static const T format[] = {'%', 'd', '-', '%', 'd', 0};
    void (*const steps[])(Text&, const Text&) = {
        [](Text& s, const Text&) { s = bc; },
        [](Text& s, const Text&) { s += bc; },
        [](Text& s, const Text& other) { s += other; },
        [](Text& s, const Text&) { s += s; },
        [](Text& s, const Text&) { s += 'x'; },
        [](Text& s, const Text&) { s.insert(1, bc); },
        [](Text& s, const Text& other) { s.insert(2, other); },
        [](Text& s, const Text&) { s.insert(0, 'x'); },
        [](Text& s, const Text&) { s.remove(a); },
        [](Text& s, const Text& other) { s.remove(other); },
        [](Text& s, const Text&) { s.remove('b'); },
        [](Text& s, const Text&) { s.erase(1, 2); },
        [](Text& s, const Text&) { s.replace(bc, a); },
        [](Text& s, const Text& other) { s.replace(a, other); },
        [](Text& s, const Text&) { s.replace('a', 'x'); },
        [](Text& s, const Text&) { s.trim(); },
        [](Text& s, const Text&) { s.trimLeft(); },
        [](Text& s, const Text&) { s.trimRight(); },
        [](Text& s, const Text&) { s.toUpperCase(); },
        [](Text& s, const Text&) { s.setBuffer(bc, sizeof(T) * 2); },
        [](Text& s, const Text&) { s.setBuffer(s.getBuffer() + 1, sizeof(T) * 2); },
        [](Text& s, const Text&) { s.format(format, 12345, 6); },
    };
    const Text start(text), other(bc);
    Seen::must(!start.isEmpty() && !other.isEmpty());
    for (auto* step : steps) {
        Text changed(start);
        step(changed, other);
        if (Seen::errors > 0 && changed != start)
            seen << "neither the old text nor the new one";
        Seen::mustNotHaveLogged();
        seen << Seen::convert(changed);
    }
}

template <class T>
void makes(Seen& seen)
{
    static const T text[] = {'a', 'b', 'c', 'd', 0};
    using Text = String_T<T>;
    const Text whole(text);
    seen.made(whole).made(Text(text, 3)).made(Text(0xE9)).made(whole.getSubString(1, 2));
    seen.made(whole + whole).made(whole + text).made(text + whole);
}

void longNeedle(Seen& seen)
{
    const String text(L"aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaab");
    Seen::must(!text.isEmpty());
    seen << text.find(L"aaaaaaaaaaaaaaaaaaaaab");
}

void formats(Seen& seen)
{
    String text;
    for (const wchar_t* format : {L"%s %08x %.3f", L"%-40s|%d|%30.10e"}) {
        text.format(format, L"text", 77, 2.5);
        Seen::mustNotHaveLogged(); // it keeps its old text
        seen.made(text);
    }
    text.format(L"%*d", 40000, 1);
    Seen::mustNotHaveLogged();
    seen.made(text);
    String_T<char> narrow;
    narrow.format("%S and %s", L"wide \xE9", "narrow");
    seen.made(narrow);
}

void encodings(Seen& seen)
{
    for (const int page : {1252, 932, 1251, 65001, 54936}) {
        setCodePage(page);
        const String_T<unsigned char> ansi = StringHelper::wideToAnsi(L"h\xE9llo \x3042 \x0436");
        seen.made(ansi).made(StringHelper::ansiToWide(ansi)).made(StringHelper::ansiToUtf8(ansi));
    }
    setCodePage(1252);
    const String_T<char> utf8 = StringHelper::wideToUtf8(L"\x3042\x0436z");
    seen.made(utf8).made(StringHelper::utf8ToWide(utf8)).made(StringHelper::utf8ToAnsi(utf8));
    seen.made(String(StringConvert("abc"))).made(String_T<char>(StringConvert(L"abc")));
    String big(L"x");
    for (int i = 0; i < 14; ++i)
        big += big;
    Seen::mustNotHaveLogged();
    seen.made(big).made(StringHelper::utf8ToWide(StringHelper::wideToUtf8(big)));
}

void values(Seen& seen)
{
    seen.made(convertToString(true)).made(convertToString(1.5f)).made(convertToString(1e300));
    seen.made(convertToString(-123456789)).made(convertToString(1ull << 63)).made(convertToString("narrow"));
    seen.made(getErrorString(2)).made(typeName(typeid(std::vector<String>)));
}

void commandLine(Seen& seen)
{
    wchar_t** argv = nullptr;
    int argc = 0;
    parseArguments(L"program \"a b\" c=\"d e\" n=7", argv, argc);
    Seen::must(argv != nullptr);
    for (int i = 0; i < argc; ++i)
        seen << argv[i];
    std::free(argv);
    const wchar_t* line = L"program path=\"c d\" n=7";
    seen.made(parseArgumentString(line, L"path", L"none"))
        << parseArgumentInt(line, L"n", 0) << parseArgumentInt64(line, L"n", 0);
}

void tokens(Seen& seen)
{
    String text(L"  first # no\n# comment\n second third");
    Seen::must(!text.isEmpty());
    for (int i = 0; i < 3; ++i) {
        skipSpaces(text);
        Seen::mustNotHaveLogged();
        seen.made(readToken(text));
        skipComments(text);
        Seen::mustNotHaveLogged();
        seen << text;
    }
    skipLine(text);
    seen.made(text);
}

template <class T>
void lines(Seen& seen)
{
    for (const auto set : {TextReader::UTF8, TextReader::WIDE, TextReader::ANSI}) {
        const auto stream = MemoryStream::createInstance();
        TextWriter writer(stream, TextWriter::CharacterSet(set));
        Seen::must(writer.write(String(L"one\r\ntwo\n")) && writer.write(String_T<char>("three\n")));
        String big(L"four-");
        for (int i = 0; i < 13; ++i)
            big += big;
        Seen::must(writer.write(big) && writer.print(L"%d %s", 5, L"\xE9") == 3);
        Seen::mustNotHaveLogged(); // a text that could not be made is an empty one
        TextReader reader(stream, set);
        for (String_T<T> line; reader.readLine(line);) {
            Seen::mustNotHaveLogged();
            seen.made(line);
        }
        Seen::mustNotHaveLogged();
        Seen::must(writer.write(String(L"all\nof it")));
        String_T<T> all;
        Seen::must(reader.read(all));
        seen.made(all);
    }
}

void configuration(Seen& seen)
{
    const auto file = MemoryFile::createInstance();
    static const char text[] = "[one]\nkey = value of it\nnumber=42\n# no\n[two]\nflag = True\nlast=end\n";
    Seen::must(file->write(text, sizeof text - 1) == sizeof text - 1);
    const String values[] = {
        (file->setPosition(0), getConfigString(file, L"one", L"key", L"default")),
        (file->setPosition(0), getConfigString(file, L"two", L"LAST", L"default")),
        (file->setPosition(0), getConfigString(file, L"two", L"missing", L"default")),
    };
    file->setPosition(0);
    const int number = getConfigInteger(file, L"one", L"number", -1);
    file->setPosition(0);
    const bool flag = getConfigBoolean(file, L"two", L"flag", false);
    Seen::mustNotHaveLogged(); // nothing throws: that is all there is
    for (const String& value : values)
        seen << value;
    seen << number << flag;
}

void configurationFile(Seen& seen)
{
    static const char text[] = "[one]\nkey = value\n";
    const auto file = TempFile::createTempFile();
    Seen::must(!file.isNull() && file->write(text, sizeof text - 1) == sizeof text - 1);
    Seen::must(file->setPosition(0) == 0);
    const String value = getConfigString(file->getFileName(), L"one", L"key", L"default");
    const String none = getConfigString(String(L"no such file"), L"one", L"key", L"default");
    Seen::must(Seen::errors <= 1); // the one for the file that is not there
    seen << value << none;
}

void times(Seen& seen)
{
    Time time(63823622325);
    seen.made(time.convertToString(false)).made(time.convertToString(true)).made(getZoneName(-28800));
    Time read;
    Seen::must(read.convertFromString(L"2022-6-27 09:58:45 Etc/GMT-8"));
    seen << static_cast<double>(read.getValue()) << getZoneBias(L"Etc/GMT+5");
}

void identifiers(Seen& seen)
{
    Uuid id;
    uuid_create_md5_from_name(id, Uuid(), "name", 4);
    seen.made(id.convertToString()).made(id.node.convertToString()).made(uuid_convertToString(id));
    const String text = uuid_convertToString(id);
    Seen::must(!text.isEmpty());
    seen << (uuid_convertFromString(text) == id) << (Uuid::create() == Uuid::create());
}

void digests(Seen& seen)
{
    MD5Context context;
    MD5Init(&context);
    MD5Update(&context, "abc", 3);
    MD5Checksum checksum;
    MD5Final(&checksum, &context);
    Seen::must(checksum.getBufferSize() == 16);
    const String text = checksum.convertToString();
    seen.made(text);
    MD5Checksum again;
    Seen::must(again.convertFromString(text));
    seen << (again == checksum);
    const String encoded = base64_encode(checksum, 16);
    seen.made(encoded).made(base64_encode(String(L"t\xE9xt"))).made(base64_decode(String(L"dMOpeHQ=")));
    Buffer buffer;
    Seen::must(buffer.convertFromBase64(encoded));
    Buffer hex;
    const String digits = buffer.convertToHex();
    seen.made(digits).made(buffer.convertToBase64());
    Seen::must(hex.convertFromHex(digits));
    const Buffer copy = hex;
    Seen::must(copy.getBufferSize() == hex.getBufferSize());
    seen << (copy == hex);
}

const sweep::Scenario scenarios[] = {
    {"strings", "changes of wide ones", changes<wchar_t>},
    {"strings", "changes of UTF-8", changes<char>},
    {"strings", "changes of ANSI", changes<unsigned char>},
    {"strings", "new wide ones", makes<wchar_t>},
    {"strings", "new UTF-8", makes<char>},
    {"strings", "new ANSI", makes<unsigned char>},
    {"strings", "a long needle", longNeedle},
    {"strings", "format", formats},
    {"encodings", "code pages", encodings},
    {"encodings", "values as text", values},
    {"arguments", "command line", commandLine},
    {"arguments", "tokens", tokens},
    {"text", "lines as wide text", lines<wchar_t>},
    {"text", "lines as UTF-8", lines<char>},
    {"text", "lines as ANSI", lines<unsigned char>},
    {"configuration", "archive", configuration},
    {"configuration", "file", configurationFile},
    {"values", "time", times},
    {"values", "uuid", identifiers},
    {"values", "digest, Base64, Buffer", digests},
};

} // namespace

const std::span<const sweep::Scenario> sweep::textScenarios = scenarios;
