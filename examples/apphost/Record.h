#pragma once
#include <orvi/core/Property.h>

namespace apphost {

/** What all objects of the model have in common. They travel over a stream as their JSON text, so that clone()
    and the classes application serve them too. */
class Record : public orvi::Property {
public:
    /** One line for lists. */
    virtual orvi::String summary() const = 0;

    void importFrom(orvi::InputStream& stream) override;
    void exportTo(orvi::OutputStream& stream) const override;

protected:
    Record() = default;
};

} // namespace apphost
