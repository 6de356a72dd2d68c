#include "Input.h"

#include <orvi/core/Uuid.h>

using namespace orvi;
using fuzz::expect;

namespace {

bool isDigit(wchar_t ch)
{
    return (ch >= L'0' && ch <= L'9') || (ch >= L'a' && ch <= L'f') || (ch >= L'A' && ch <= L'F');
}

/** Whether the text begins as `form` shows: "x" for a digit, all else for itself. */
bool beginsAs(const String& text, const char* form)
{
    for (const wchar_t* p = text.getBuffer(); *form != 0; ++p, ++form) {
        if (*form == 'x' ? !isDigit(*p) : *p != static_cast<wchar_t>(*form))
            return false;
    }
    return true;
}

/** What the pointer form (`isRead`, `value`) and the String form (`whole`) of reading made of a text. */
template <class Value>
void checkRead(const String& text, const char* form, bool isRead, const Value& value, const Value& whole)
{
    expect(isRead == beginsAs(text, form), "the form of a text decides whether it is read");
    expect(isRead || value == Value(), "what cannot be read is zero");
    const bool isWhole = isRead && text.getLength() == Value::textLength;
    expect(whole == (isWhole ? value : Value()), "the String form reads whole texts alone, and the same");
    if (isRead) {
        String canonical = text.getSubString(0, Value::textLength);
        expect(value.convertToString() == canonical.toLowerCase(), "what was read prints the same");
    }
}

void checkText(const String& text)
{
    Uuid uuid;
    const bool isUuid = uuid_convertFromString(uuid, text.getBuffer());
    checkRead(text, "xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx", isUuid, uuid, uuid_convertFromString(text));

    uuid_node_t node, whole;
    const bool isNode = node.convertFromString(text.getBuffer());
    const bool isWhole = whole.convertFromString(text);
    expect(isWhole == (isNode && text.getLength() == uuid_node_t::textLength), "a node has 12 digits");
    checkRead(text, "xxxxxxxxxxxx", isNode, node, whole);
}

template <class Value>
void checkOrder(const Value& a, const Value& b)
{
    expect((a <=> b) == (0 <=> (b <=> a)), "the order is the same from both sides");
    expect(((a <=> b) == 0) == (a == b), "values in the same place are equal");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    fuzz::Input values(data, size);
    const Uuid a = values.take<Uuid>();
    const Uuid b = values.take<Uuid>();
    checkOrder(a, b);
    checkOrder(a.node, b.node);
    expect(uuid_convertFromString(a.convertToString()) == a, "what was printed is read");
    Uuid named;
    uuid_create_md5_from_name(named, a, values.data(), static_cast<int>(values.size()));
    expect(named.time_hi_and_version >> 12 == 3, "a uuid of a name says so");

    checkText(fuzz::Input(data, size).takeText());
    return 0;
}
