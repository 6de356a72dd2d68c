// Mistakes in the declaration of property classes. Nothing of it compiles: the script beside it wants every text
// behind an "expect:" among the errors.
#include <orvi/core/Core.h>

using orvi::Handle_T;
using orvi::Property;

class Unrelated : public orvi::Unknown {
public:
    int number;
};
class Forward;
enum class Side { Left, Right };

class Abstract : public Property { // expect: a property class makes objects of itself
    ORVI_DECLARE_PROPERTY(Abstract, Property);
    virtual void draw() = 0;
};
ORVI_DEFINE_PROPERTY(Abstract) {}

class Orphan : public Property { // expect: write the class's direct base there
    ORVI_DECLARE_PROPERTY(Orphan, orvi::Message);
};
ORVI_DEFINE_PROPERTY(Orphan) {}

class Undeclared : public Property {};

class Wrong : public Property {
    ORVI_DECLARE_PROPERTY(Wrong, Property);
    Side _side;
    int* _pointer;
    const int _constant = 0;
    unsigned long long _large;
    Handle_T<Unrelated> _unrelated;
    Handle_T<Forward> _forward;
    std::list<Handle_T<Undeclared>> _undeclared;
    std::vector<Property*> _pointers;
    int number;
    int count();
};
ORVI_DEFINE_PROPERTY(Wrong)
{
    table.add(L"side", &Wrong::_side);           // expect: this member's type has no JSON form
    table.add(L"pointer", &Wrong::_pointer);     // expect: a plain pointer has no owner
    table.add(L"constant", &Wrong::_constant);   // expect: its member cannot be const
    table.add(L"large", &Wrong::_large);         // expect: write unsigned long, which has 64 bits
    table.add(L"unrelated", &Wrong::_unrelated); // expect: this handle's class is no property class
    table.add(L"forward", &Wrong::_forward);     // expect: only declared here: include its header
    table.add(L"undeclared",
              &Wrong::_undeclared);            // expect: ORVI_DECLARE_PROPERTY; a handle to an abstract class
    table.add(L"pointers", &Wrong::_pointers); // expect: write std::vector<Handle_T<Class>>
    table.add(L"other", &Unrelated::number);   // expect: this member belongs to another class
    table.add("number", &Wrong::number);       // expect: write L"key"
    table.add(L"count", &Wrong::count);        // expect: write &Class::member
}
