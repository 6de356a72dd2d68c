#include "Record.h"

#include <orvi/core/Exception.h>
#include <orvi/core/Json.h>
#include <orvi/core/PropertyHelper.h>
#include <orvi/core/Stream.h>

namespace apphost {

void Record::importFrom(orvi::InputStream& stream)
{
    orvi::String text;
    orvi::JsonValue document;
    stream >> text;
    if (orvi::Json::parseValue(text, document) == nullptr)
        THROW_EXCEPTION(-1, L"a record's text is malformed");
    importProperty(document);
}

void Record::exportTo(orvi::OutputStream& stream) const
{
    stream << orvi::PropertyHelper::convertToString(this, false);
}

} // namespace apphost
