#pragma once
#include <orvi/core/Export.h>
#include <orvi/core/String.h>

namespace orvi {

class Archive;

// Values from configuration files: UTF-8 text in lines, white space around which is ignored.
//
//     [section]          nothing else may stand in this line
//     # a comment        takes a whole line
//     key = value        the key of ASCII letters, digits and "_"; the value up to the end of the line
//
// Sections and keys compare without regard to the case of ASCII letters. A key is looked for from its section
// on to the end of the file, through the sections that follow; the first one counts. Each call reads the file
// from its start. An archive stays behind the line that gave the value, else at its end; who has many keys
// opens one. A file is named by a path or a URL of ArchiveFactory; one that does not open gives the default
// and a line in the log. Nothing throws.

/** The value, or the default for a key that is missing or empty, as for a null archive. */
ORVI_API String getConfigString(Archive* archive, const String& section, const String& key,
                                const String& defaultValue);
ORVI_API String getConfigString(const String& fileName, const String& section, const String& key,
                                const String& defaultValue);

/** The same as a number: a sign, digits up to the first other character; 0 for a value without digits. */
ORVI_API int getConfigInteger(Archive* archive, const String& section, const String& key, int defaultValue);
ORVI_API int getConfigInteger(const String& fileName, const String& section, const String& key,
                              int defaultValue);

/** Whether the value is "true", in any case; every other value is false. */
ORVI_API bool getConfigBoolean(Archive* archive, const String& section, const String& key, bool defaultValue);
ORVI_API bool getConfigBoolean(const String& fileName, const String& section, const String& key,
                               bool defaultValue);

} // namespace orvi
