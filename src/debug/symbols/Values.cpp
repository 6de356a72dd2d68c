#include "Values.h"

#include "Names.h"
#include "base/Memory.h"
#include <cstring>
#include <dwarf.h>

namespace orvi::debug {
namespace {

constexpr char unreadable[] = "<unreadable>";

bool moveTo(Dwarf_Die& entry, Dwarf_Attribute* attribute)
{
    return dwarf_formref_die(attribute, &entry) != nullptr;
}

bool moveToType(Dwarf_Die& entry)
{
    Dwarf_Attribute attribute;
    if (!moveTo(entry, dwarf_attr_integrate(&entry, DW_AT_type, &attribute)))
        return false;
    Dwarf_Attribute* elsewhere = dwarf_attr(&entry, DW_AT_signature, &attribute); // in a unit of its own
    return elsewhere == nullptr || moveTo(entry, elsewhere);
}

bool isPointer(int tag)
{
    return tag == DW_TAG_pointer_type || tag == DW_TAG_reference_type || tag == DW_TAG_rvalue_reference_type;
}

bool isOtherName(int tag)
{
    return tag == DW_TAG_typedef || tag == DW_TAG_const_type || tag == DW_TAG_volatile_type ||
           tag == DW_TAG_restrict_type || tag == DW_TAG_atomic_type;
}

// A type without its pointers and other names.
struct Type {
    explicit Type(Dwarf_Die entry)
        : die(entry)
    {
        constexpr int maxSteps = 64; // damaged information may lead in circles
        for (int step = 0; step < maxSteps; ++step) {
            tag = moveToType(die) ? dwarf_tag(&die) : DW_TAG_unspecified_type; // void
            if (isPointer(tag))
                ++pointers;
            else if (!isOtherName(tag))
                return;
        }
        tag = DW_TAG_unspecified_type;
    }

    std::uint64_t size()
    {
        Dwarf_Word bytes = 0;
        return dwarf_aggregate_size(&die, &bytes) == 0 ? bytes : 0;
    }
    Dwarf_Word encoding()
    {
        Dwarf_Attribute attribute;
        Dwarf_Word number = 0;
        dwarf_formudata(dwarf_attr_integrate(&die, DW_AT_encoding, &attribute), &number);
        return number;
    }

    Dwarf_Die die;
    int tag;
    int pointers = 0;
};

template <class T>
std::optional<T> load(const Operand& place)
{
    static_assert(sizeof(T) <= sizeof place.number);
    T value{};
    if (place.kind == Operand::Kind::Value)
        std::memcpy(&value, &place.number, sizeof value);
    else if (!readMemory(place.number, &value, sizeof value))
        return {};
    return value;
}

template <class T>
void writeNumber(const Operand& place, TextBuffer& text, void (*write)(TextBuffer&, T))
{
    if (const auto value = load<T>(place))
        write(text, *value);
    else
        text.append(unreadable);
}

void writeAddress(std::uint64_t address, TextBuffer& text)
{
    text.format("0x%08llx", static_cast<unsigned long long>(address));
}

void writePointer(const Operand& place, TextBuffer& text)
{
    writeNumber<std::uint64_t>(place, text,
                               [](TextBuffer& to, std::uint64_t value) { writeAddress(value, to); });
}

void writeCharacter(unsigned char character, TextBuffer& text)
{
    if (character == '"' || character == '\\')
        text.format("\\%c", character);
    else if (character >= ' ' && character <= '~')
        text.format("%c", character);
    else
        text.format("\\x%02x", character);
}

// Up to a NUL, to the end or to what cannot be read. Nothing when that is the beginning.
void writeQuoted(std::uint64_t address, std::uint64_t maxLength, TextBuffer& text)
{
    constexpr std::uint64_t enoughLength = 200;
    unsigned char character = 0;
    if (!readMemory(address, &character, 1))
        return;
    text.append("\"");
    std::uint64_t i = 0;
    while (i < maxLength && i < enoughLength && readMemory(address + i, &character, 1) && character != '\0') {
        writeCharacter(character, text);
        ++i;
    }
    text.append(i == enoughLength && i < maxLength ? "\"..." : "\"");
}

void writePointerAndText(const Operand& place, TextBuffer& text)
{
    const auto pointer = load<std::uint64_t>(place);
    writePointer(place, text);
    if (!pointer)
        return;
    char quoted[1024];
    TextBuffer quotedText(quoted);
    writeQuoted(*pointer, UINT64_MAX, quotedText);
    if (*quoted != '\0')
        text.format(" %s", quoted);
}

std::uint64_t elementCount(Dwarf_Die& array, std::uint64_t elementSize)
{
    Dwarf_Word bytes = 0;
    return elementSize == 0 || dwarf_aggregate_size(&array, &bytes) != 0 ? 0 : bytes / elementSize;
}

void writeTypeName(Type type, TextBuffer& text)
{
    if (type.tag != DW_TAG_array_type)
        return writeQualifiedName(type.die, text);
    Type element(type.die);
    writeTypeName(element, text);
    for (int i = 0; i < element.pointers; ++i)
        text.append(i == 0 ? " *" : "*");
    const std::uint64_t size = element.pointers > 0 ? sizeof(void*) : element.size();
    text.format("[%llu]", static_cast<unsigned long long>(elementCount(type.die, size)));
}

// What takes more than a line: its type and where it is.
void writeObject(Type& type, const Operand& place, TextBuffer& text)
{
    static constexpr const char* stars[] = {"", " *", " **"};
    char name[256];
    TextBuffer nameText(name);
    writeTypeName(type, nameText);
    text.format("(%s%s) ", name, stars[type.pointers < 2 ? type.pointers : 2]);
    if (type.pointers == 1)
        writePointer(place, text);
    else if (place.kind == Operand::Kind::Address)
        writeAddress(place.number, text);
    else
        text.append("<in registers>");
}

void writeArray(Type& type, const Operand& place, TextBuffer& text)
{
    Type element(type.die);
    const bool isText = element.tag == DW_TAG_base_type && element.pointers == 0 && element.size() == 1 &&
                        element.encoding() != DW_ATE_boolean;
    if (!isText || type.pointers > 0 || place.kind != Operand::Kind::Address)
        return writeObject(type, place, text);
    writeQuoted(place.number, elementCount(type.die, 1), text);
    if (*text.text() == '\0')
        text.append(unreadable);
}

void writeEnumerator(Type& type, const Operand& place, TextBuffer& text)
{
    switch (type.size()) {
    case 1:
        return writeNumber<std::int8_t>(place, text,
                                        [](TextBuffer& to, std::int8_t v) { to.format("%d", v); });
    case 2:
        return writeNumber<std::int16_t>(place, text,
                                         [](TextBuffer& to, std::int16_t v) { to.format("%d", v); });
    case 8:
        return writeNumber<long long>(place, text, [](TextBuffer& to, long long v) { to.format("%lld", v); });
    default:
        return writeNumber<int>(place, text, [](TextBuffer& to, int v) { to.format("%d", v); });
    }
}

void writeFourBytes(Dwarf_Word encoding, const Operand& place, TextBuffer& text)
{
    if (encoding == DW_ATE_signed)
        writeNumber<int>(place, text, [](TextBuffer& to, int v) { to.format("%d", v); });
    else if (encoding == DW_ATE_float)
        writeNumber<float>(place, text,
                           [](TextBuffer& to, float v) { to.format("%f", static_cast<double>(v)); });
    else
        writeNumber<unsigned>(place, text, [](TextBuffer& to, unsigned v) { to.format("%x", v); });
}

/** There are two of 16 bytes: that of the processor, and __float128. */
bool isLongDouble(Type& type)
{
    const char* name = dwarf_diename(&type.die);
    return type.encoding() == DW_ATE_float && name != nullptr && std::strcmp(name, "long double") == 0;
}

void writeLongDouble(std::uint64_t address, TextBuffer& text)
{
    long double value = 0;
    if (readMemory(address, &value, sizeof value))
        text.format("%Lf", value);
    else
        text.append(unreadable);
}

void writeBaseValue(Type& type, const Operand& place, TextBuffer& text)
{
    const Dwarf_Word encoding = type.encoding();
    switch (type.size()) {
    case 1:
        return writeNumber<unsigned char>(place, text,
                                          [](TextBuffer& to, unsigned char v) { to.format("%x", v); });
    case 2:
        return writeNumber<std::uint16_t>(place, text,
                                          [](TextBuffer& to, std::uint16_t v) { to.format("%x", v); });
    case 4:
        return writeFourBytes(encoding, place, text);
    case 8:
        if (encoding == DW_ATE_float)
            return writeNumber<double>(place, text, [](TextBuffer& to, double v) { to.format("%lf", v); });
        return writeNumber<unsigned long long>(
            place, text, [](TextBuffer& to, unsigned long long v) { to.format("%llX", v); });
    default:
        if (place.kind == Operand::Kind::Address && isLongDouble(type))
            return writeLongDouble(place.number, text);
        return writeObject(type, place, text);
    }
}

void writeBase(Type& type, const Operand& place, TextBuffer& text)
{
    if (type.pointers == 0)
        writeBaseValue(type, place, text);
    else if (type.pointers == 1 && type.size() == 1)
        writePointerAndText(place, text);
    else
        writePointer(place, text);
}

} // namespace

void writeValue(Dwarf_Die& variable, const std::optional<Operand>& place, TextBuffer& text)
{
    if (!place)
        return text.append("<optimized out>");
    Type type(variable);
    switch (type.tag) {
    case DW_TAG_base_type:
        return writeBase(type, *place, text);
    case DW_TAG_enumeration_type:
        return type.pointers > 0 ? writePointer(*place, text) : writeEnumerator(type, *place, text);
    case DW_TAG_array_type:
        return writeArray(type, *place, text);
    case DW_TAG_subroutine_type:
    case DW_TAG_ptr_to_member_type:
    case DW_TAG_unspecified_type: // void and the type of nullptr
        return writePointer(*place, text);
    default:
        return writeObject(type, *place, text);
    }
}

} // namespace orvi::debug
