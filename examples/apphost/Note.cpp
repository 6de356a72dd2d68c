#include "Note.h"

#include <orvi/core/Stream.h>
#include <orvi/core/Time.h>

namespace apphost {

using orvi::String;

ORVI_DEFINE_CLASS(Note);

orvi::Handle_T<Note> Note::createInstance(const String& title, const String& text)
{
    const orvi::Handle_T<Note> note(new Note);
    note->_title = title;
    note->_text = text;
    note->_written = orvi::time(nullptr);
    return note;
}

void Note::importFrom(orvi::InputStream& stream) { stream >> _title >> _text >> _written; }

void Note::exportTo(orvi::OutputStream& stream) const { stream << _title << _text << _written; }

} // namespace apphost
