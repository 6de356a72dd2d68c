#include <orvi/core/Unknown.h>

#include <orvi/core/Exception.h>
#include <orvi/core/Log.h>
#include <orvi/core/MemoryStream.h>
#include <orvi/core/Stream.h>

namespace orvi {

Unknown::Handle_T<Unknown> Unknown::clone() const
{
    const Handle_T<Unknown> copy = rtCreateInstance();
    const Unknown* made = copy;
    if (made == nullptr || typeid(*made) != typeid(*this)) {
        // A class derives from a registered one without being registered itself.
        Log::error(L"Call rtCreateInstance(%s) error! typeid(%s)", getClassName().getBuffer(),
                   typeName(typeid(*this)).getBuffer());
        return Handle_T<Unknown>();
    }
    try {
        const Handle_T<MemoryStream> bytes = MemoryStream::createInstance();
        OutputStream output(bytes);
        exportTo(output);
        InputStream input(bytes);
        copy->importFrom(input);
    } catch (const Exception& exception) {
        exception.report();
        return Handle_T<Unknown>();
    }
    return copy;
}

} // namespace orvi
