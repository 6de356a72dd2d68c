#pragma once
#include <orvi/core/JsonValue.h>
#include <orvi/core/String.h>

#include <optional>
#include <vector>

namespace apphost {

/** A place in a document: keys behind dots, numbers in brackets, as in lines[2].article; a key with other
    characters is a string in brackets, as in ["two words"]; "." is the whole document. */
class DocumentPath {
public:
    /** Takes a path off the front of the text, up to a blank; nothing, with `text` unchanged, when it is
        malformed. */
    static std::optional<DocumentPath> parse(const wchar_t*& text);

    /** Looks, and adds nothing. Null, with the reason, when there is no such place. */
    const orvi::JsonValue* find(const orvi::JsonValue& document, orvi::String& reason) const
    {
        return find(document, _steps.size(), reason);
    }
    /** Puts `value` in that place; its last step may be a new key of an object, or the number behind the last
        entry of an array. False, with the reason and the document unchanged, when it cannot be there. */
    bool set(orvi::JsonValue& document, orvi::JsonValue& value, orvi::String& reason) const;

private:
    struct Step {
        orvi::String key;
        int index = -1; // below 0: the key counts
    };

    static const wchar_t* parseBracket(const wchar_t* p, Step& step);
    const orvi::JsonValue* find(const orvi::JsonValue& document, std::size_t steps,
                                orvi::String& reason) const;
    orvi::String text(std::size_t steps) const;

    std::vector<Step> _steps;
};

} // namespace apphost
