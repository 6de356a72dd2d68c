#include "MemorySweep.h"

#include <algorithm>
#include <cstdlib>

using namespace orvi;
using sweep::Seen;

namespace {

/** Each change by itself: it is made, or the text stays. And each way to a new text. */
template <class T>
void strings(Seen& seen)
{
    using Text = String_T<T>;
    static const T a[] = {'a', 0}, bc[] = {'b', 'c', 0}, text[] = {' ', 'a', 'b', 'c', 'a', 'b', ' ', 0};
    static const T format[] = {'%', 'd', '-', '%', 'd', 0};
    void (*const steps[])(Text&, const Text&) = {
        [](Text& s, const Text&) { s = bc; },
        [](Text& s, const Text&) { s += bc; },
        [](Text& s, const Text&) { s += s; },
        [](Text& s, const Text&) { s += 'x'; },
        [](Text& s, const Text& other) { s.insert(2, other); },
        [](Text& s, const Text&) { s.insert(0, 'x'); },
        [](Text& s, const Text& other) { s.remove(other); },
        [](Text& s, const Text&) { s.remove('b'); },
        [](Text& s, const Text&) { s.erase(1, 2); },
        [](Text& s, const Text& other) { s.replace(a, other); },
        [](Text& s, const Text&) { s.replace('a', 'x'); },
        [](Text& s, const Text&) { s.trim(); },
        [](Text& s, const Text&) { s.toUpperCase(); },
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
        seen << changed;
    }
    seen.made(Text(bc, 1)).made(Text(0xE9)).made(start.getSubString(1, 2));
    seen.made(start + start).made(start + bc).made(bc + start);
    const Text many = start + start + start + start + start, needle = start + start + start + bc;
    Seen::mustNotHaveLogged();
    seen << many.find(needle); // long enough for a table
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
    seen.made(StringHelper::utf8ToWide(StringHelper::wideToUtf8(sweep::manyTimes(L"xy"))));
}

void values(Seen& seen)
{
    seen.made(convertToString(true)).made(convertToString(1.5f)).made(convertToString(1e300));
    seen.made(convertToString(-123456789)).made(convertToString(1ull << 63)).made(convertToString("narrow"));
    seen.made(getErrorString(2)).made(typeName(typeid(std::vector<String>)));
    Time time(63823622325);
    seen.made(time.convertToString(false)).made(time.convertToString(true)).made(getZoneName(-28800));
    Time read;
    Seen::must(read.convertFromString(L"2022-6-27 09:58:45 Etc/GMT-8"));
    seen << read.getValue() << getZoneBias(L"Etc/GMT+5");
    Uuid id;
    uuid_create_md5_from_name(id, Uuid(), "name", 4);
    seen.made(id.convertToString()).made(id.node.convertToString()).made(uuid_convertToString(id));
    const String text = uuid_convertToString(id);
    Seen::must(!text.isEmpty());
    seen << (uuid_convertFromString(text) == id) << (Uuid::create() == Uuid::create());
}

void arguments(Seen& seen)
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
}

template <class T>
void lines(Seen& seen)
{
    for (const auto set : {TextReader::UTF8, TextReader::WIDE, TextReader::ANSI}) {
        const auto stream = MemoryStream::createInstance();
        TextWriter writer(stream, TextWriter::CharacterSet(set));
        Seen::must(writer.write(String(L"one\r\ntwo\n")) && writer.write(String_T<char>("three\n")));
        Seen::must(writer.write(sweep::manyTimes(L"four-")) && writer.print(L"%d %s", 5, L"\xE9") == 3);
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
    static const char text[] = "[one]\nkey = value of it\nnumber=42\n# no\n[two]\nflag = True\nlast=end\n";
    const auto file = TempFile::createTempFile();
    Seen::must(!file.isNull() && file->write(text, sizeof text - 1) == sizeof text - 1);
    Seen::must(file->setPosition(0) == 0);
    const bool flag = getConfigBoolean(file, L"two", L"flag", false);
    const String name = file->getFileName();
    const int number = getConfigInteger(name, L"one", L"number", -1);
    const String key = getConfigString(name, L"one", L"key", L"default");
    Seen::mustNotHaveLogged(); // nothing throws: that is all there is
    const String none = getConfigString(String(L"no such file"), L"one", L"key", L"default");
    Seen::must(Seen::errors <= 1); // the one for the file that is not there
    seen << flag << number << key << none;
}

void digests(Seen& seen)
{
    MD5Checksum checksum;
    Seen::must(checksum.convertFromString(L"900150983cd24fb0d6963f7d28e17f72"));
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
    {"strings: wide", strings<wchar_t>},
    {"strings: UTF-8", strings<char>},
    {"strings: ANSI", strings<unsigned char>},
    {"strings: format", formats},
    {"encodings", encodings},
    {"values", values},
    {"arguments", arguments},
    {"text: wide", lines<wchar_t>},
    {"text: UTF-8", lines<char>},
    {"text: ANSI", lines<unsigned char>},
    {"configuration", configuration},
    {"digest, Base64, Buffer", digests},
};

} // namespace

const std::span<const sweep::Scenario> sweep::textScenarios = scenarios;
