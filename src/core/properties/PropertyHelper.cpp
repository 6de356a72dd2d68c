#include <orvi/core/PropertyHelper.h>

#include <orvi/core/Json.h>

namespace orvi {

Handle_T<Property> PropertyHelper::convertPropertyToClass(const JsonValue& value)
{
    return property::createObject(value);
}

void PropertyHelper::convertPropertyToJson(const Property* object, JsonValue& value)
{
    property::getObject(object, value);
}

String PropertyHelper::convertToString(const Property* object, bool pretty)
{
    JsonValue document;
    property::getObject(object, document);
    return Json::convertToString(document, pretty);
}

Handle_T<Property> PropertyHelper::convertToClass(const String& text)
{
    JsonValue document;
    return Json::parseValue(text, document) != nullptr ? convertPropertyToClass(document)
                                                       : Handle_T<Property>();
}

bool PropertyHelper::write(const Property* object, Output* output, bool pretty)
{
    JsonValue document;
    property::getObject(object, document);
    return Json::write(document, output, pretty);
}

Handle_T<Property> PropertyHelper::read(Input* input)
{
    JsonValue document;
    return Json::read(document, input) ? convertPropertyToClass(document) : Handle_T<Property>();
}

bool PropertyHelper::save(const Property* object, const String& path, bool pretty)
{
    JsonValue document;
    property::getObject(object, document);
    return Json::save(document, path, pretty);
}

Handle_T<Property> PropertyHelper::load(const String& path)
{
    JsonValue document;
    return Json::load(document, path) ? convertPropertyToClass(document) : Handle_T<Property>();
}

} // namespace orvi
