#pragma once
#include <doctest/doctest.h>

#include <orvi/core/Json.h>

inline orvi::JsonValue parsed(const wchar_t* text)
{
    orvi::JsonValue value;
    REQUIRE(orvi::Json::parseValue(text, value) != nullptr);
    return value;
}

inline orvi::String compact(const orvi::JsonValue& value)
{
    return orvi::Json::convertToString(value, false);
}
