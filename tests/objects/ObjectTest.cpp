#include "TextPrinting.h"

#include "RecordingLog.h"

#include <orvi/core/Core.h>

#include <algorithm>
#include <functional>
#include <latch>
#include <thread>
#include <vector>

using namespace orvi;

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
    {
        const Handle_T<Animal> second(first);
        CHECK(first->getReferenceCount() == 2);
    }
    first = *&first;
    CHECK(first->getReferenceCount() == 1);
    first->next = Animal::createInstance();
    first = first->next; // the old object holds the handle that is assigned
    CHECK(g_alive == 1);
    CHECK(first->getReferenceCount() == 1);

    Handle_T<Animal> moved(std::move(first));
    CHECK(first.isNull());
    moved.setNull();
    CHECK(g_alive == 0);
}

TEST_CASE("handles convert up, down and not at all")
{
    const Handle_T<Unknown> unknown = Dog::createInstance();
    const Handle_T<Animal> animal = unknown;
    const Handle_T<Dog> dog(animal);
    Handle_T<const Unknown> watched;
    watched = dog;
    CHECK(watched == unknown);
    Handle_T<Stone> stone = Stone::createInstance();
    stone = unknown;
    CHECK(stone.isNull());
    CHECK(unknown->getReferenceCount() == 4);
}

TEST_CASE("handles on one object come and go in many threads")
{
    const Handle_T<Animal> shared = Animal::createInstance();
    std::latch start(4);
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([copy = shared, &start] {
            start.arrive_and_wait();
            for (int round = 0; round < 100'000; ++round)
                const Handle_T<Unknown> another = copy;
        });
    }
    for (auto& thread : threads)
        thread.join();
    CHECK(shared->getReferenceCount() == 1);
}

// ---- registry

namespace shapes {

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

using Registry = Unknown::RtFactory;

/** Of another name than Drawing and of the same id, as two letters swapped six places apart would give. */
class Impostor : public Unknown {
public:
    static Handle_T<Unknown> create() { return new Impostor; }
    const String& getClassName() const override { return g_name; }
    unsigned int getClassId() const override { return shapes::Drawing::g_classId_; }
    static const String g_name;
};
const String Impostor::g_name(L"Impostor");

} // namespace

TEST_CASE("classes are created by their plain names and by their ids")
{
    for (const wchar_t* name : {L"Layer", L"Drawing"}) {
        CAPTURE(name);
        const unsigned int id = Unknown::ClassType(name).getClassId();
        const Handle_T<Unknown> byName = Registry::createClassInstance(name);
        const Handle_T<Unknown> byId = Registry::createClassInstance(id);
        REQUIRE((!byName.isNull() && !byId.isNull()));
        CHECK(byName->getReferenceCount() == 1);
        CHECK(byName->getClassName() == name);
        CHECK(byName->getClassType().getClassId() == id);
        CHECK(byId->rtCreateInstance()->getClassName() == name);
    }
    CHECK(Event::g_classId_ == 0x0778A305);
    CHECK(Unknown::ClassType(L"Message").getClassId() == 0xD44B5952);
    CHECK(Unknown::ClassType(String()).getClassId() == 0xFFFFFFFF);
    CHECK(Unknown::ClassType(static_cast<Unknown*>(nullptr)).getClassId() == 0);
    CHECK(Registry::createClassInstance(L"Square").isNull());
    CHECK(Registry::createClassInstance(12345U).isNull());
    std::vector<String> names{L"old"};
    Registry::getRtClassNames(names);
    CHECK(std::is_sorted(names.begin(), names.end()));
    CHECK(std::count(names.begin(), names.end(), String(L"Unknown")) == 1);
    CHECK(std::count(names.begin(), names.end(), String(L"old")) == 0);
}

TEST_CASE("a class whose id is taken is refused")
{
    const RecordingLog log;
    CHECK(!Registry::setupCreator(&Impostor::create));
    CHECK(Registry::createClassInstance(L"Impostor").isNull());
    String expected;
    expected.format(L"RTTI: (Impostor) setup error! ClassId(%d)", shapes::Drawing::g_classId_);
    CHECK(log.errors() == std::vector<String>{expected});
}

// ---- callbacks and events

namespace {

struct Counter {
    void count(unsigned int amount) { sum += amount; }
    void countTwice(unsigned int amount) { sum += 2 * amount; }
    unsigned int sum = 0;
};

unsigned int g_sum = 0;
void countLong(unsigned long amount) { g_sum += static_cast<unsigned int>(amount); }

using Handler = CallbackHandler<void, unsigned int>;

} // namespace

TEST_CASE("callbacks call their target, and compare as their keys do")
{
    Counter one, two;
    Handler{&countLong}(3); // the argument converts
    CHECK(g_sum == 3);
    Handler(&one, &Counter::count)(4);
    CHECK(one.sum == 4);

    using Base = CallbackBase<void, unsigned int>;
    using Method = CallbackClassReference<void, unsigned int, Counter, unsigned int>;
    const Handle_T<Base> all[] = {new Method(&one, &Counter::count), new Method(&two, &Counter::count),
                                  new Method(&one, &Counter::countTwice),
                                  new CallbackFunction<void, unsigned int, unsigned long>(&countLong)};
    for (const auto& a : all) {
        CHECK(Handler() < Handler(a));
        for (const auto& b : all) {
            CHECK((Handler(a) < Handler(b)) == (a->getKey() < b->getKey()));
            CHECK((Handler(a) == Handler(b)) == (&a == &b));
            CHECK((a->getKey() == b->getKey()) == (&a == &b));
        }
    }
    CHECK(Handler(all[0]) == Handler(&one, &Counter::count));
    CHECK(Handler() == Handler());
}

namespace {

class DoorEvent : public Event {
    ORVI_DECLARE_CLASS(DoorEvent);
};
ORVI_DEFINE_CLASS(DoorEvent);

class FrontDoorEvent : public DoorEvent {
    ORVI_DECLARE_CLASS(FrontDoorEvent);
};
ORVI_DEFINE_CLASS(FrontDoorEvent);

/** Writes its letter, and then does what the test wants. */
struct Witness {
    void onEvent(const Event*)
    {
        log += letter;
        if (then)
            then();
    }
    template <class E = DoorEvent>
    EventHandler handler()
    {
        return EventHandler::of<E>(this, &Witness::onEvent);
    }

    String& log;
    wchar_t letter;
    std::function<void()> then = nullptr;
};

struct House {
    template <class E = DoorEvent>
    void send()
    {
        doors.sendEvent(Handle_T<E>(new E));
    }

    String log;
    Witness a{log, L'a'}, b{log, L'b'}, c{log, L'c'}, late{log, L'l'};
    EventDispenser doors;
};

/** Known by its key alone. */
class Named : public CallbackBase<void, const Event*> {
public:
    static EventHandler handler(String& log, const wchar_t* name)
    {
        const Handle_T<Named> callback = new Named;
        callback->_log = &log;
        callback->_name = name;
        return EventHandler(DoorEvent::getClassId_(), EventHandler::Callback(callback));
    }
    void operator()(const Event*) override { *_log += _name; }
    String getKey() override { return _name; }

private:
    String* _log = nullptr;
    String _name;
};

} // namespace

TEST_CASE("events reach the handlers of their exact class, in order and none twice")
{
    House house;
    house.doors += Named::handler(house.log, L"1");
    house.doors += house.a.handler();
    house.doors += Named::handler(house.log, L"2");
    house.doors += Named::handler(house.log, L"1");
    CHECK(house.doors.addEventHandler(house.a.handler()));
    house.doors += house.b.handler<FrontDoorEvent>();
    house.send();
    house.send<FrontDoorEvent>();
    house.doors.sendEvent(Event::createInstance());
    CHECK(house.log == L"1a2b");
    for (const wchar_t* name : {L"1", L"3"})
        house.doors -= Named::handler(house.log, name);
    house.send();
    CHECK(house.log == L"1a2ba2");
    house.doors -= house.a.handler();
    house.doors -= house.a.handler();
    house.send();
    CHECK(house.log == L"1a2ba22");
    house.doors.clear();
    house.send();
    CHECK(house.log == L"1a2ba22");
    CHECK(house.a.handler() == house.a.handler());
    CHECK(house.a.handler() != house.a.handler<FrontDoorEvent>());
}

TEST_CASE("handlers that come and go during a walk")
{
    const struct {
        const char* what;
        Witness House::*who; // changes the list when the event comes to it
        std::vector<Witness House::*> leave;
        bool lateComes, throws;
        const wchar_t *once, *twice; // what is written when the event comes once and twice
    } rows[] = {
        {"one removes itself", &House::b, {&House::b}, false, false, L"abc", L"abcac"},
        {"one removes the next", &House::a, {&House::b}, false, false, L"ac", L"acac"},
        {"what one adds is called in this walk", &House::b, {}, true, false, L"abcl", L"abclabcl"},
        {"what the last one adds waits", &House::c, {}, true, false, L"abc", L"abcabcl"},
        {"all go", &House::a, {&House::a, &House::b, &House::c}, true, false, L"a", L"al"},
        {"one throws, which ends the walk", &House::b, {&House::b}, false, true, L"ab", L"abac"},
    };
    int thrown = 0;
    for (const auto& row : rows) {
        CAPTURE(row.what);
        House house;
        for (Witness* witness : {&house.a, &house.b, &house.c})
            house.doors += witness->handler();
        (house.*row.who).then = [&] {
            for (Witness House::*witness : row.leave)
                house.doors -= (house.*witness).handler();
            if (row.lateComes)
                house.doors += house.late.handler();
            if (row.throws)
                throw 1;
        };
        for (const wchar_t* written : {row.once, row.twice}) {
            try {
                house.send();
            } catch (int) {
                ++thrown;
            }
            CHECK(house.log == written);
        }
    }
    CHECK(thrown == 1);
}

TEST_CASE("copies of a dispenser share the lists that they have")
{
    House house;
    house.doors += house.a.handler();
    EventDispenser copy(house.doors);
    copy += house.b.handler();
    copy += house.c.handler<FrontDoorEvent>();
    house.send();
    house.send<FrontDoorEvent>();
    CHECK(house.log == L"ab");
    // A class has a list as long as somebody is in it, so that those who share an empty one share no more.
    house.doors -= house.a.handler();
    house.doors -= house.b.handler();
    copy -= house.b.handler(); // which is not there any more
    house.doors = copy;
    copy += house.a.handler();
    house.send();
    CHECK(house.log == L"ab");
}
