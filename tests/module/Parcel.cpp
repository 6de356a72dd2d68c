// A module that a test loads and unloads: it brings a class, a property class and a value type of its own.
#include <orvi/core/Core.h>

namespace {

struct Weight {
    int grams = 0;
};
void convertPropertyToClass(const orvi::JsonValue& value, Weight& target) { target.grams = value.asInt32(); }
void convertPropertyToJson(const Weight& source, orvi::JsonValue& value)
{
    value = orvi::JsonValue(source.grams);
}
const orvi::PropertyConverters<Weight> weightConverters(L"Weight");

class Parcel : public orvi::Message {
    ORVI_DECLARE_PROPERTY(Parcel, orvi::Message);
    std::list<int> _stamps;
    std::vector<orvi::Handle_T<Parcel>> _parts;
    orvi::Handle_T<orvi::Property> _content;
    Weight _weight;
};
ORVI_DEFINE_PROPERTY(Parcel)
{
    table.add(L"content", &Parcel::_content);
    table.add(L"parts", &Parcel::_parts);
    table.add(L"stamps", &Parcel::_stamps);
    table.add(L"weight", &Parcel::_weight);
}

class Visitor : public orvi::Unknown {
    ORVI_DECLARE_CLASS(Visitor);
    void importFrom(orvi::InputStream& stream) override { stream >> _name; }
    void exportTo(orvi::OutputStream& stream) const override { stream << _name; }
    orvi::String _name = L"visitor";
};
ORVI_DEFINE_CLASS(Visitor);

} // namespace

extern "C" ORVI_API bool parcelIsRegistered()
{
    return weightConverters.joined() && Parcel::g_setUpCreator_ && Visitor::g_setUpCreator_;
}
