// A module that is loaded with too little memory: its classes come all, or it tells that one has not.
#include <orvi/core/Core.h>

class Guest : public orvi::Unknown {
    ORVI_DECLARE_CLASS(Guest);
};
ORVI_DEFINE_CLASS(Guest);

class Luggage : public orvi::Message {
    ORVI_DECLARE_MESSAGE(Luggage, orvi::Message);
    int _weight = 7;
    orvi::String _owner = L"guest";
};
ORVI_DEFINE_MESSAGE(Luggage)
{
    table.add(L"owner", &Luggage::_owner);
    table.add(L"weight", &Luggage::_weight);
}
