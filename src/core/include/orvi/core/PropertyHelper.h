#pragma once
#include <orvi/core/Export.h>
#include <orvi/core/Property.h>
#include <orvi/core/String.h>
#include <orvi/core/Unknown.h>

namespace orvi {

class Input;
class JsonValue;
class Output;

/** Whole objects to documents, texts and files, and back.

    What comes back is of the class that the document names in "__class__": a null handle when it names none or
    the text is malformed; with the reason in the log when nobody registered the class. A null object is the JSON
    null. Nothing throws, but for want of memory. Any thread. */
class ORVI_API PropertyHelper {
public:
    PropertyHelper() = delete;

    static Unknown::Handle_T<Property> convertPropertyToClass(const JsonValue& value);
    static void convertPropertyToJson(const Property* object, JsonValue& value);

    static String convertToString(const Property* object, bool pretty);
    /** What stands behind the first value is ignored. */
    static Unknown::Handle_T<Property> convertToClass(const String& text);

    /** As Json::write and Json::read do. */
    static bool write(const Property* object, Output* output, bool pretty);
    static Unknown::Handle_T<Property> read(Input* input);

    /** As Json::save and Json::load do: `path` is a file, for load also another archive URL. */
    static bool save(const Property* object, const String& path, bool pretty);
    static Unknown::Handle_T<Property> load(const String& path);
};

} // namespace orvi
