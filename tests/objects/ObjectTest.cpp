#include "TextPrinting.h"

#include "RecordingLog.h"

#include <orvi/core/Core.h>

#include <algorithm>
#include <functional>
#include <thread>
#include <vector>

using orvi::CallbackHandler;
using orvi::Event;
using orvi::EventDispenser;
using orvi::EventHandler;
using orvi::Handle_T;
using orvi::SharedPtr;
using orvi::String;
using orvi::Unknown;

namespace {

int g_alive = 0;

class Animal : public virtual Unknown {
public:
    static Handle_T<Animal> createInstance() { return new Animal; }
    Handle_T<Animal> next;

protected:
    Animal() { ++g_alive; }
    ~Animal() override { --g_alive; }
};

class Dog : public Animal {
public:
    static Handle_T<Dog> createInstance() { return new Dog; }
};

class Stone : public Unknown {
public:
    static Handle_T<Stone> createInstance() { return new Stone; }
};

} // namespace

TEST_CASE("an object lives as long as its last handle")
{
    Handle_T<Animal> first = Animal::createInstance();
    CHECK(first->getReferenceCount() == 1);
    {
        const Handle_T<Animal> second(first);
        CHECK(first->getReferenceCount() == 2);
        CHECK(second == first);
    }
    first = *&first;
    CHECK(first->getReferenceCount() == 1);
    CHECK(g_alive == 1);

    first->next = Animal::createInstance();
    first = first->next; // the old object holds the handle that is assigned
    CHECK(g_alive == 1);
    CHECK(first->getReferenceCount() == 1);

    Handle_T<Animal> moved(std::move(first));
    CHECK(first.isNull());
    CHECK(moved->getReferenceCount() == 1);
    moved.setNull();
    CHECK(g_alive == 0);
    CHECK(moved == nullptr);
}

TEST_CASE("handles convert up, down and not at all")
{
    const Handle_T<Unknown> unknown = Dog::createInstance();
    const Handle_T<Animal> animal = unknown;
    const Handle_T<Dog> dog(animal);
    CHECK(dog != nullptr);
    CHECK(unknown->getReferenceCount() == 3);
    const Handle_T<Stone> stone = unknown;
    CHECK(stone.isNull());
    CHECK(unknown->getReferenceCount() == 3);
    CHECK(animal == dog);

    Handle_T<const Unknown> watched;
    watched = dog;
    CHECK(watched == unknown);
    Handle_T<Stone> assigned = Stone::createInstance();
    assigned = unknown;
    CHECK(assigned.isNull());
    CHECK(unknown->getReferenceCount() == 4);
}

TEST_CASE("handles on one object come and go in many threads")
{
    const Handle_T<Animal> shared = Animal::createInstance();
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([copy = shared] {
            for (int round = 0; round < 20000; ++round)
                const Handle_T<Unknown> another = copy;
        });
    }
    for (auto& thread : threads)
        thread.join();
    CHECK(shared->getReferenceCount() == 1);
}

TEST_CASE("shared ownership of an object that is no Unknown")
{
    struct Counted {
        explicit Counted(int& counter)
            : alive(counter)
        {
            ++alive;
        }
        ~Counted() { --alive; }
        int& alive;
    };
    int alive = 0;
    {
        SharedPtr<Counted> a(new Counted(alive));
        const SharedPtr<Counted> b(a);
        a = SharedPtr<Counted>();
        CHECK(a.isNull());
        CHECK(alive == 1);
        CHECK(&b->alive == &alive);
    }
    CHECK(alive == 0);
}

// ---- registry

namespace shapes {

class Circle : public Unknown {
    ORVI_DECLARE_CLASS(Circle);

protected:
    Circle() = default;
};
ORVI_DEFINE_CLASS(Circle);

class Drawing : public Unknown {
    class Layer : public Unknown {
        ORVI_DECLARE_CLASS(Layer);
    };
    ORVI_DECLARE_CLASS(Drawing);
};
ORVI_DEFINE_CLASS(Drawing::Layer);

} // namespace shapes
ORVI_DEFINE_CLASS(shapes::Drawing);

namespace {

/** Of another name than Circle and of the same id, as two letters swapped six places apart would give. */
class Impostor : public Unknown {
public:
    static Handle_T<Unknown> create() { return new Impostor; }
    const String& getClassName() const override { return g_name; }
    unsigned int getClassId() const override { return shapes::Circle::g_classId_; }
    static const String g_name;
};
const String Impostor::g_name(L"Impostor");

} // namespace

TEST_CASE("class ids are computed from the name")
{
    CHECK(Unknown::ClassType(L"abc").getClassId() == 0x198A1);
    CHECK(Unknown::ClassType(L"Event").getClassId() == 0x0778A305);
    CHECK(Unknown::ClassType(L"Message").getClassId() == 0xD44B5952);
    CHECK(Unknown::ClassType(L"Unknown").getClassId() == 0xF528BA83);
    CHECK(Unknown::ClassType(String()).getClassId() == 0xFFFFFFFF);
    CHECK(Unknown::ClassType().getClassId() == 0);
    CHECK(Unknown::ClassType(static_cast<Unknown*>(nullptr)).getClassName().isEmpty());
    CHECK(Event::g_classId_ == 0x0778A305);
    CHECK(Unknown::getClassId_() == 0xF528BA83);
}

TEST_CASE("a class that is nested or defined from outside its namespace has its plain name")
{
    for (const wchar_t* name : {L"Layer", L"Drawing"}) {
        const Handle_T<Unknown> object = Unknown::RtFactory::createClassInstance(name);
        REQUIRE(!object.isNull());
        CHECK(object->getClassName() == name);
        CHECK(object->getClassId() == Unknown::ClassType(name).getClassId());
    }
}

TEST_CASE("a class whose id is taken is refused")
{
    const RecordingLog log;
    CHECK(!Unknown::RtFactory::setupCreator(&Impostor::create));
    CHECK(Unknown::RtFactory::createClassInstance(L"Impostor").isNull());
    String expected;
    expected.format(L"RTTI: (Impostor) setup error! ClassId(%d)", shapes::Circle::g_classId_);
    REQUIRE(log.lines().size() == 1);
    CHECK(log.lines()[0].text == expected);
}

TEST_CASE("classes are created by name and by id")
{
    using Registry = Unknown::RtFactory;
    const Handle_T<Unknown> byName = Registry::createClassInstance(L"Circle");
    const Handle_T<Unknown> byId = Registry::createClassInstance(shapes::Circle::g_classId_);
    REQUIRE(!byName.isNull());
    REQUIRE(!byId.isNull());
    CHECK(byName->getReferenceCount() == 1);
    CHECK(byName->getClassName() == L"Circle");
    CHECK(byName->getClassType().getClassId() == shapes::Circle::getClassId_());
    CHECK(byName->rtCreateInstance()->getClassName() == L"Circle");
    CHECK(shapes::Circle::g_setUpCreator_);
    CHECK(Registry::createClassInstance(L"Square").isNull());
    CHECK(Registry::createClassInstance(12345U).isNull());
    CHECK(Unknown::ClassType(L"Square").createInstance().isNull());

    std::vector<String> names{L"old"};
    Registry::getRtClassNames(names);
    CHECK(std::is_sorted(names.begin(), names.end()));
    for (const wchar_t* name : {L"Circle", L"Event", L"MemoryStream", L"Unknown"})
        CHECK(std::count(names.begin(), names.end(), String(name)) == 1);
    CHECK(std::count(names.begin(), names.end(), String(L"old")) == 0);

    const String stamp(Event::createInstance()->getClassTimestamp());
    CHECK(stamp.getLength() == 24);
    CHECK(stamp == Registry::createClassInstance(L"MemoryStream")->getClassTimestamp());
}

// ---- callbacks and events

namespace {

struct Counter {
    void count(unsigned int amount) { sum += amount; }
    void countTwice(unsigned int amount) { sum += 2 * amount; }
    unsigned int sum = 0;
};

unsigned int g_sum = 0;
void countGlobally(unsigned int amount) { g_sum += amount; }
void countLong(unsigned long amount) { g_sum += static_cast<unsigned int>(amount); }

using Handler = CallbackHandler<void, unsigned int>;

} // namespace

TEST_CASE("callbacks call their target and are equal by target")
{
    Counter one, two;
    const Handler function(&countGlobally), method(&one, &Counter::count), null;
    function(3);
    method(4);
    CHECK(g_sum == 3);
    CHECK(one.sum == 4);
    Handler{&countLong}(1); // the argument converts
    CHECK(g_sum == 4);

    CHECK(function == Handler(&countGlobally));
    CHECK(method == Handler(&one, &Counter::count));
    CHECK(method != Handler(&two, &Counter::count));
    CHECK(method != Handler(&one, &Counter::countTwice));
    CHECK(null == Handler());
    CHECK(null != function);
    CHECK(null < function);
    CHECK(null.isNull());
    CHECK((function < method) != (method < function));
    // By the order of their keys, which nobody has to make for it.
    using Base = orvi::CallbackBase<void, unsigned int>;
    using Method = orvi::CallbackClassReference<void, unsigned int, Counter, unsigned int>;
    const Handle_T<Base> all[] = {
        new Method(&one, &Counter::count), new Method(&two, &Counter::count),
        new Method(&one, &Counter::countTwice),
        new orvi::CallbackFunction<void, unsigned int, unsigned int>(&countGlobally)};
    for (const auto& a : all) {
        for (const auto& b : all) {
            CHECK((Handler(a) < Handler(b)) == (a->getKey() < b->getKey()));
            CHECK((Handler(a) == Handler(b)) == (a->getKey() == b->getKey()));
        }
    }
    Handler copy(method);
    copy.setNull();
    CHECK(copy == null);
    CHECK(!method.isNull());
}

namespace {

class DoorEvent : public Event {
    ORVI_DECLARE_CLASS(DoorEvent);

public:
    static Handle_T<DoorEvent> createInstance() { return new DoorEvent; }
};
ORVI_DEFINE_CLASS(DoorEvent);

class FrontDoorEvent : public DoorEvent {
    ORVI_DECLARE_CLASS(FrontDoorEvent);

public:
    static Handle_T<FrontDoorEvent> createInstance() { return new FrontDoorEvent; }
};
ORVI_DEFINE_CLASS(FrontDoorEvent);

/** Writes its letter, and then does what the test wants. */
struct Witness {
    Witness(String& writtenTo, wchar_t ownLetter)
        : log(writtenTo)
        , letter(ownLetter)
    {}
    void onEvent(const Event*)
    {
        log += letter;
        if (then)
            then();
    }
    EventHandler handler() { return EventHandler::of<DoorEvent>(this, &Witness::onEvent); }

    String& log;
    wchar_t letter;
    std::function<void()> then;
};

} // namespace

TEST_CASE("events reach the handlers of their exact class, in order")
{
    String log;
    Witness a(log, L'a'), b(log, L'b'), c(log, L'c');
    EventDispenser doors;
    CHECK(doors.addEventHandler(a.handler()));
    doors += b.handler();
    CHECK(doors.addEventHandler(a.handler())); // a duplicate
    doors += EventHandler::of<FrontDoorEvent>(&c, &Witness::onEvent);
    doors.sendEvent(DoorEvent::createInstance());
    CHECK(log == L"ab");
    doors.sendEvent(FrontDoorEvent::createInstance());
    CHECK(log == L"abc");
    doors.sendEvent(Event::createInstance());
    doors -= b.handler();
    doors -= b.handler();
    doors.sendEvent(DoorEvent::createInstance());
    CHECK(log == L"abca");
    doors.clear();
    doors.clear();
    doors.sendEvent(DoorEvent::createInstance());
    CHECK(log == L"abca");
    CHECK(EventHandler().isNull());
    CHECK(a.handler() == a.handler());
    CHECK(a.handler() != EventHandler::of<FrontDoorEvent>(&a, &Witness::onEvent));
}

TEST_CASE("handlers that come and go during a walk")
{
    String log;
    EventDispenser doors;
    Witness a(log, L'a'), b(log, L'b'), c(log, L'c'), late(log, L'l');
    const auto reset = [&] {
        log = L"";
        a.then = b.then = c.then = nullptr;
        doors.clear();
        doors += a.handler();
        doors += b.handler();
        doors += c.handler();
    };
    const auto send = [&] { doors.sendEvent(DoorEvent::createInstance()); };

    SUBCASE("one removes itself")
    {
        reset();
        b.then = [&] { doors -= b.handler(); };
        send();
        CHECK(log == L"abc");
        send();
        CHECK(log == L"abcac");
    }
    SUBCASE("one removes the one behind it")
    {
        reset();
        a.then = [&] { doors -= b.handler(); };
        send();
        CHECK(log == L"ac");
    }
    SUBCASE("one that is not the last adds another, which is called in this walk")
    {
        reset();
        b.then = [&] { doors += late.handler(); };
        send();
        CHECK(log == L"abcl");
    }
    SUBCASE("what the last one adds waits for the next event")
    {
        reset();
        c.then = [&] { doors += late.handler(); };
        send();
        CHECK(log == L"abc");
        send();
        CHECK(log == L"abcabcl");
    }
    SUBCASE("all go, and one that comes then starts a list of its own")
    {
        reset();
        a.then = [&] {
            for (Witness* witness : {&a, &b, &c})
                doors -= witness->handler();
            doors += late.handler();
        };
        send();
        CHECK(log == L"a");
        send();
        CHECK(log == L"al");
    }
    SUBCASE("one throws: the walk ends, the list stays usable")
    {
        reset();
        b.then = [&] {
            doors -= b.handler();
            throw 1;
        };
        CHECK_THROWS_AS(send(), int);
        send();
        CHECK(log == L"abac");
    }
}

TEST_CASE("callbacks that are known by their keys alone stand among the others")
{
    String log;
    class Named : public orvi::CallbackBase<void, const Event*> {
    public:
        Named(String& writtenTo, const wchar_t* name)
            : _log(writtenTo)
            , _name(name)
        {}
        void operator()(const Event*) override { _log += _name; }
        String getKey() override { return _name; }

    private:
        String& _log;
        String _name;
    };
    const auto named = [&](const wchar_t* name) {
        return EventHandler(DoorEvent::getClassId_(), EventHandler::Callback(new Named(log, name)));
    };
    Witness a(log, L'a');
    EventDispenser doors;
    const auto send = [&] { doors.sendEvent(DoorEvent::createInstance()); };
    doors += named(L"1");
    doors += a.handler();
    doors += named(L"2");
    doors += named(L"1");
    doors += a.handler();
    send();
    CHECK(log == L"1a2");
    doors -= named(L"1");
    doors -= named(L"3");
    send();
    CHECK(log == L"1a2a2");
    doors -= a.handler();
    doors -= named(L"2");
    send();
    CHECK(log == L"1a2a2");
}

TEST_CASE("copies of a dispenser share the lists that they have")
{
    String log;
    Witness a(log, L'a'), b(log, L'b'), c(log, L'c');
    EventDispenser doors;
    doors += a.handler();
    EventDispenser copy(doors);
    copy += b.handler();
    copy += EventHandler::of<FrontDoorEvent>(&c, &Witness::onEvent);
    doors.sendEvent(DoorEvent::createInstance());
    doors.sendEvent(FrontDoorEvent::createInstance());
    CHECK(log == L"ab");
    // A class has a list as long as somebody is in it, so that those who share an empty one share no more.
    doors -= a.handler();
    doors -= b.handler();
    copy -= b.handler(); // which is not there any more
    EventDispenser third(copy);
    copy += a.handler();
    third.sendEvent(DoorEvent::createInstance());
    CHECK(log == L"ab");
    const EventDispenser moved(std::move(copy));
    copy.sendEvent(DoorEvent::createInstance());
    CHECK(log == L"ab");
}
