#pragma once
#include <orvi/core/Export.h>
#include <orvi/core/MessageTable.h>
#include <orvi/core/Property.h>
#include <orvi/core/Unknown.h>

namespace orvi {

/** The base of what travels through message ports and readers. It holds nothing itself.

    A message has two forms: the binary body, by importFrom and exportTo, and the document of a Property. A subclass
    declared by ORVI_DECLARE_MESSAGE lists its members once for both; MessageTable.h tells how, and what a class
    does that writes its body by hand. */
class ORVI_API Message : public Property {
    ORVI_DECLARE_PROPERTY(Message, Property);

public:
    /** A new plain Message. A subclass has an operation of this name that makes it. */
    static Unknown::Handle_T<Message> createMessage_();

    /** As Unknown::clone: made through the binary form. */
    Unknown::Handle_T<Message> clone() const;

    void importFrom(InputStream& stream) override;
    void exportTo(OutputStream& stream) const override;

protected:
    Message() noexcept = default;
};

} // namespace orvi
