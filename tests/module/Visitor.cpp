// A module that a test loads and unloads: it brings a class of its own.
#include <orvi/core/Core.h>

namespace {

class Visitor : public orvi::Unknown {
    ORVI_DECLARE_CLASS(Visitor);

public:
    void importFrom(orvi::InputStream& stream) override { stream >> _name; }
    void exportTo(orvi::OutputStream& stream) const override { stream << _name; }

private:
    orvi::String _name = L"visitor";
};
ORVI_DEFINE_CLASS(Visitor);

} // namespace

extern "C" ORVI_API bool visitorIsRegistered() { return Visitor::g_setUpCreator_; }
