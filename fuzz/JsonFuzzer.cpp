#include "Input.h"

#include <orvi/core/Json.h>
#include <orvi/core/MemoryFile.h>
#include <orvi/core/Text.h>

#include <cmath>

using namespace orvi;
using fuzz::expect;

namespace {

/** What keeps a value from coming back from its text as it was. */
struct Contents {
    bool hasReal = false;     // it has 16 digits at most
    bool hasInfinity = false; // its text is none of JSON
    bool hasMinusZero = false;
    bool hasHalfPair = false; // its UTF-8 is malformed

    explicit Contents(const JsonValue& value) { collect(value); }

private:
    void collect(const JsonValue& value)
    {
        switch (value.type()) {
        case JsonValue::realValue:
            hasReal = true;
            hasInfinity |= std::isinf(value.asDouble());
            hasMinusZero |= value.asDouble() == 0 && std::signbit(value.asDouble());
            break;
        case JsonValue::stringValue:
            collect(value.asString());
            break;
        case JsonValue::arrayValue:
            for (int i = 0; i < value.size(); ++i)
                collect(value[i]);
            break;
        case JsonValue::objectValue:
            for (const auto& [key, member] : value.getMembers()) {
                collect(key);
                collect(member);
            }
            break;
        default:
            break;
        }
    }
    void collect(const String& text)
    {
        for (const wchar_t* p = text.getBuffer(); *p != 0; ++p) {
            const bool isPair = (*p & 0xFC00) == 0xD800 && (p[1] & 0xFC00) == 0xDC00;
            hasHalfPair |= !isPair && (*p & 0xF800) == 0xD800;
            p += isPair ? 1 : 0;
        }
    }
};

/** Parses a text over a value that a failure must leave alone. */
bool parse(const String& text, JsonValue& value)
{
    JsonValue before;
    before[L"kept"] = 5;
    value = before;
    const wchar_t* const begin = text;
    const wchar_t* const end = Json::parseValue(begin, value);
    expect(end != nullptr || value == before, "malformed text leaves the value alone");
    expect(end == nullptr || (end > begin && end <= begin + text.getLength()), "a value ends in its text");
    return end != nullptr;
}

/** Writes units, and reads nothing back. */
String writeUnits(const JsonValue& value, bool pretty)
{
    const auto file = MemoryFile::createInstance();
    expect(Json::writeValue(value, file, pretty), "memory takes a text");
    file->setPosition(0);
    String text;
    TextReader(file, TextReader::WIDE).read(text);
    return text;
}

void checkPrint(const JsonValue& value, const Contents& contents, bool pretty)
{
    const String text = Json::convertToString(value, pretty);
    expect(writeUnits(value, pretty) == text, "both writers give the same text");
    if (contents.hasInfinity)
        return;
    JsonValue again;
    expect(parse(text, again), "what is printed can be parsed");
    expect(contents.hasReal || (again == value && value == again), "a value comes back from its text");
    if (!contents.hasMinusZero)
        expect(Json::convertToString(again, pretty) == text, "the second print is the first one");
}

void checkCopies(const JsonValue& value)
{
    JsonValue copy = value;
    expect(copy == value && value == copy, "a copy is equal");
    copy[L"another"][3] = true;
    expect(copy != value, "a change shows");
    copy[L"another"] = copy;
    copy = copy[L"another"];
    expect(copy[L"another"][3] == true, "a value may be assigned to and from a part of itself");
}

void checkValue(const JsonValue& value)
{
    const Contents contents(value);
    checkCopies(value);
    checkPrint(value, contents, false);
    checkPrint(value, contents, true);

    const auto file = MemoryFile::createInstance();
    expect(Json::write(value, file, true), "memory takes a text");
    file->setPosition(0);
    JsonValue read;
    if (!contents.hasInfinity && !contents.hasHalfPair) {
        expect(Json::read(read, file), "what is written can be read");
        expect(contents.hasReal || read == value, "what is written comes back");
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    JsonValue value;
    if (parse(fuzz::Input(data, size).takeText(), value))
        checkValue(value);

    const auto file = MemoryFile::createInstance();
    file->write(data, static_cast<int>(size));
    file->setPosition(0);
    String text;
    TextReader(file, TextReader::UTF8).read(text);
    file->setPosition(0);
    JsonValue read = 5;
    const bool isRead = Json::read(read, file);
    expect(isRead == parse(text, value), "a stream is read as its text is parsed");
    expect(isRead ? Json::convertToString(read, false) == Json::convertToString(value, false)
                  : read.type() == JsonValue::intValue && read == 5,
           "malformed bytes leave the value alone, others give what their text gives");
    return 0;
}
