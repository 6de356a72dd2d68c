#include <orvi/core/Unknown.h>

#include "BuildTimestamp.h"

#include <cstdio>
#include <cstdlib>

namespace orvi {

namespace {

// While the destructors run, handles on the object may still come and go without reviving it.
constexpr unsigned int dying = 0x80000000;

#ifndef NDEBUG
[[noreturn]] void stop(const char* mistake)
{
    std::fputs(mistake, stderr);
    std::abort();
}
#endif

} // namespace

const wchar_t* Unknown::getClassTimestamp() const { return buildTimestamp(); }

const String& Unknown::getClassName() const { return getClassName_(); }

unsigned int Unknown::getClassId() const { return g_classId_; }

Unknown::Handle_T<Unknown> Unknown::rtCreateInstance() const { return rtCreateInstance_(); }

Unknown::~Unknown()
{
#ifndef NDEBUG
    const unsigned int references = _references.load();
    if (references != 0 && references != dying)
        stop("orvi: an object dies while handles still hold it: was it deleted, or does it live on the "
             "stack?\n");
#endif
}

void Unknown::importFrom(InputStream&) {}

void Unknown::exportTo(OutputStream&) const {}

Unknown::ClassType Unknown::getClassType() const { return ClassType(this); }

void Unknown::lastRelease(unsigned int before) const noexcept
{
    if (before == 1) {
        _references.store(dying);
        delete this;
        return;
    }
#ifndef NDEBUG
    stop("orvi: an object was released more often than it was held\n");
#endif
}

ORVI_DEFINE_CLASS_IDENTITY(Unknown);

} // namespace orvi
