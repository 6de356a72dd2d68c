// Mistakes with messages and their handlers. Nothing of it compiles: the script beside it wants every text behind
// an "expect:" among the errors.
#include <orvi/core/Core.h>

using orvi::Message;

struct Fraction {};
void convertPropertyToClass(const orvi::JsonValue& value, Fraction& target);
void convertPropertyToJson(const Fraction& source, orvi::JsonValue& value);

class Layer : public orvi::Property {
    ORVI_DECLARE_PROPERTY(Layer, orvi::Property);
};

class Good : public Message {
    ORVI_DECLARE_MESSAGE(Good, Message);
    Fraction _fraction;
    enum { Left, Right } _side;
    std::vector<orvi::Handle_T<Layer>> _layers;
};
ORVI_DEFINE_MESSAGE(Good)
{
    table.add(L"fraction", &Good::_fraction); // expect: this member's type has no binary form
    table.add(L"layers", &Good::_layers);     // expect: objects of this handle's class would arrive empty
    table.add(L"side", &Good::_side);         // expect: this member's type has no JSON form
}

class Undeclared : public Good {};

class Uncreated : public Message {
    ORVI_DECLARE_PROPERTY(Uncreated, Message);
};

struct Room {
    void onGood(Good*);
};
struct Hall {};

void onUndeclared(Undeclared*);
void onUncreated(Uncreated*);
void onForward(class Forward*);
void onNumber(int);
void onNothing();
int onResult(Good*);

void misuse(Hall& hall, int number)
{
    orvi::MessageReader reader;
    reader += onUndeclared;                   // expect: the class of this handler's message is not declared
    reader += onUncreated;                    // expect: nothing says how to make a message of this class
    reader += onForward;                      // expect: is only declared here: include its header
    reader += onNumber;                       // expect: takes a pointer or a reference to a class derived
    reader += onNothing;                      // expect: this is no message handler
    reader += onResult;                       // expect: this handler's result is not that of the table
    reader += [&number](Good*) { ++number; }; // expect: a lambda that captures cannot be found again
    reader += {&hall, &Room::onGood};         // expect: this is no method of the object's class
}
