#pragma once
#include "Commands.h"

#include <orvi/core/Archive.h>
#include <orvi/core/JsonValue.h>

namespace apphost {

/** Opens a file or another archive URL for reading. Null, with the reason, when it does not open, has no size
    or is larger than `mostBytes`. */
orvi::Handle_T<orvi::Archive> openSource(const orvi::String& url, int mostBytes, orvi::String& reason);

// JSON in commands. Each gives false when the command fails, and has told the client why.

/** The text is one value, with nothing but white space and comments around it. */
bool parseJson(const Call& call, const orvi::String& text, orvi::JsonValue& value);
bool loadJson(const Call& call, const wchar_t* url, orvi::JsonValue& value);
/** Replaces the file. */
bool saveJson(const Call& call, const wchar_t* path, const orvi::JsonValue& value, bool pretty);
bool sayJson(const Call& call, const orvi::JsonValue& value, bool pretty);

constexpr int mostNesting = 1024; // of documents: what is deeper could not be read back
/** How many containers are within each other. */
int nestingOf(const orvi::JsonValue& value);

} // namespace apphost
