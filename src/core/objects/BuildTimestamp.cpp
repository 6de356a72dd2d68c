#include "BuildTimestamp.h"

namespace orvi {

const wchar_t* buildTimestamp() { return L"" ORVI_BUILD_TIMESTAMP; }

} // namespace orvi
