#pragma once
#include <orvi/core/String.h>

#include <string>

namespace orvi {

/** As TempFile::getTempFileName. `path` is the name as the system takes it, so that to remove the file takes no memory. */
String makeTempFile(std::string& path);

} // namespace orvi
