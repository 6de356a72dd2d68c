#pragma once
#include <orvi/core/Export.h>
#include <orvi/core/Property.h>
#include <orvi/core/Unknown.h>

namespace orvi {

/** The base of what travels through message ports and readers. It holds nothing itself.

    A message has two forms, each of which a subclass fills in as far as it needs it: the binary body, by
    importFrom and exportTo, and the document of a Property. A subclass is declared by ORVI_DECLARE_PROPERTY, so
    that the far side can make one by its class id; with fields and without the two overrides it arrives empty. */
class ORVI_API Message : public Property {
    ORVI_DECLARE_PROPERTY(Message, Property);

public:
    /** A new plain Message. A subclass that message parsers make has an operation of this name that makes it. */
    static Unknown::Handle_T<Message> createMessage_();

    /** As Unknown::clone: made through the binary form. */
    Unknown::Handle_T<Message> clone() const;

    void importFrom(InputStream& stream) override;
    void exportTo(OutputStream& stream) const override;

protected:
    Message() noexcept = default;
};

} // namespace orvi
