#pragma once
#include <orvi/core/Unknown.h>

namespace apphost {

/** A note with a title, in the registry of classes: it can be made by its name or id, cloned, and sent over a
    stream. This is all that a class of a program's own needs for that. */
class Note : public orvi::Unknown {
    ORVI_DECLARE_CLASS(Note);

public:
    static orvi::Handle_T<Note> createInstance(const orvi::String& title, const orvi::String& text);

    const orvi::String& getTitle() const { return _title; }
    const orvi::String& getText() const { return _text; }
    /** Seconds as orvi::time counts them. */
    long long getWritten() const { return _written; }

    void importFrom(orvi::InputStream& stream) override;
    void exportTo(orvi::OutputStream& stream) const override;

protected:
    Note() = default;

private:
    orvi::String _title;
    orvi::String _text;
    long long _written = 0;
};

} // namespace apphost
