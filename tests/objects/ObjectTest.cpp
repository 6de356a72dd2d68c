#include "RecordingLog.h"
#include "TextPrinting.h"

#include <orvi/core/Core.h>

#include <algorithm>
#include <functional>
#include <latch>
#include <thread>
#include <vector>

using namespace orvi;

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

class Animal : public virtual Unknown {
public:
    Animal() { ++alive; }
    ~Animal() override { --alive; }
    Handle_T<Animal> next;
    inline static int alive = 0;
};

class Dog : public Animal {};
class Stone : public Unknown {};

using Registry = Unknown::RtFactory;

/** Of another name than Drawing and of the same id, as two letters swapped six places apart would give. */
class Impostor : public Unknown {
    const String& getClassName() const override { return name; }
    unsigned int getClassId() const override { return shapes::Drawing::g_classId_; }
    const String name = L"Impostor";
};

struct Counter {
    void count(unsigned int amount) { sum += amount; }
    void countTwice(unsigned int amount) { sum += 2 * amount; }
    unsigned int sum = 0;
};

unsigned long g_sum = 0;
void countLong(unsigned long amount) { g_sum += amount; }

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

/** Known by its key alone. */
struct Named : CallbackBase<void, const Event*> {
    Named(String& aLog, const wchar_t* aName)
        : log(aLog)
        , name(aName)
    {}
    void operator()(const Event*) override { log += name; }
    String getKey() override { return name; }

    String& log;
    String name;
};

struct House {
    template <class E = DoorEvent>
    void send()
    {
        doors.sendEvent(Handle_T<E>(new E));
    }
    EventHandler named(const wchar_t* name)
    {
        return {DoorEvent::getClassId_(), EventHandler::Callback(new Named(log, name))};
    }

    String log;
    Witness a{log, L'a'}, b{log, L'b'}, c{log, L'c'}, late{log, L'l'};
    EventDispenser doors;
};

} // namespace

TEST_CASE("an object lives as long as its last handle, and handles convert up, down and not at all")
{
    Handle_T<Animal> first = new Animal;
    {
        const Handle_T<Animal> second(first);
        CHECK(first->getReferenceCount() == 2);
    }
    first = *&first;
    CHECK(first->getReferenceCount() == 1);
    first->next = new Animal;
    first = first->next; // the old object holds the handle that is assigned
    CHECK((Animal::alive == 1 && first->getReferenceCount() == 1));
    Handle_T<Animal> moved(std::move(first));
    CHECK(first.isNull());
    moved.setNull();
    CHECK(Animal::alive == 0);

    const Handle_T<Unknown> unknown = new Dog;
    const Handle_T<Animal> animal = unknown;
    const Handle_T<Dog> dog(animal);
    Handle_T<const Unknown> watched;
    watched = dog;
    CHECK(watched == unknown);
    Handle_T<Stone> stone = new Stone;
    stone = unknown;
    CHECK((stone.isNull() && unknown->getReferenceCount() == 4));
}

TEST_CASE("handles on one object come and go in many threads")
{
    const Handle_T<Animal> shared = new Animal;
    std::latch start(4);
    std::vector<std::jthread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([copy = shared, &start] {
            start.arrive_and_wait();
            for (int round = 0; round < 400'000; ++round)
                const Handle_T<Unknown> another = copy;
        });
    }
    threads.clear(); // joins
    CHECK(shared->getReferenceCount() == 1);
}

TEST_CASE("classes are created by their plain names and by their ids, which no other class may have")
{
    for (const wchar_t* name : {L"Layer", L"Drawing"}) {
        CAPTURE(name);
        const unsigned int id = Unknown::ClassType(name).getClassId();
        const Handle_T<Unknown> byName = Registry::createClassInstance(name);
        const Handle_T<Unknown> byId = Registry::createClassInstance(id);
        REQUIRE((!byName.isNull() && !byId.isNull()));
        CHECK((byName->getReferenceCount() == 1 && byName->getClassName() == name));
        CHECK(byName->getClassType().getClassId() == id);
        CHECK(byId->rtCreateInstance()->getClassName() == name);
    }
    CHECK(Event::g_classId_ == 0x0778A305);
    CHECK(Unknown::ClassType(L"Message").getClassId() == 0xD44B5952);
    CHECK(Unknown::ClassType(String()).getClassId() == 0xFFFFFFFF);
    CHECK(Unknown::ClassType(static_cast<Unknown*>(nullptr)).getClassId() == 0);
    CHECK((Registry::createClassInstance(L"Square").isNull() &&
           Registry::createClassInstance(12345U).isNull()));
    std::vector<String> names{L"old"};
    Registry::getRtClassNames(names);
    CHECK((std::is_sorted(names.begin(), names.end()) &&
           std::count(names.begin(), names.end(), L"Unknown") == 1));
    CHECK(std::count(names.begin(), names.end(), String(L"old")) == 0);

    const RecordingLog log; // a class whose id is taken is refused
    CHECK(!Registry::setupCreator([]() -> Handle_T<Unknown> { return new Impostor; }));
    CHECK(Registry::createClassInstance(L"Impostor").isNull());
    String expected;
    expected.format(L"RTTI: (Impostor) setup error! ClassId(%d)", shapes::Drawing::g_classId_);
    CHECK(log.errors() == std::vector<String>{expected});
}

TEST_CASE("callbacks call their target, and compare as their keys do")
{
    using Handler = CallbackHandler<void, unsigned int>;
    Counter one, two;
    Handler{&countLong}(3); // the argument converts
    Handler(&one, &Counter::count)(4);
    CHECK((g_sum == 3 && one.sum == 4));
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
        }
    }
    CHECK((Handler(all[0]) == Handler(&one, &Counter::count) && Handler() == Handler()));
}

TEST_CASE("events reach the handlers of their exact class, in order and none twice")
{
    House house;
    for (const EventHandler& handler :
         {house.named(L"1"), house.a.handler(), house.named(L"2"), house.named(L"1"), house.a.handler(),
          house.b.handler<FrontDoorEvent>()})
        CHECK(house.doors.addEventHandler(handler));
    house.send();
    house.send<FrontDoorEvent>();
    house.doors.sendEvent(Event::createInstance());
    CHECK(house.log == L"1a2b");
    for (int i = 0; i < 2; ++i) // then they are not there any more
        (house.doors -= house.named(L"1")) -= house.a.handler();
    house.send();
    CHECK(house.log == L"1a2b2");
    house.doors.clear();
    house.send();
    CHECK(house.log == L"1a2b2");
    CHECK((house.a.handler() == house.a.handler() && house.a.handler() != house.a.handler<FrontDoorEvent>()));
}

TEST_CASE("handlers that come and go during a walk")
{
    const struct {
        Witness House::*who; // changes the list when the event comes to it
        std::vector<Witness House::*> leave;
        bool lateComes, throws;
        const wchar_t *once, *twice; // what is written when the event comes once and twice
    } rows[] = {
        {&House::b, {&House::b}, false, false, L"abc", L"abcac"}, // itself
        {&House::a, {&House::b}, false, false, L"ac", L"acac"},   // the next
        {&House::b, {}, true, false, L"abcl", L"abclabcl"},
        {&House::c, {}, true, false, L"abc", L"abcabcl"}, // what the last one adds waits
        {&House::a, {&House::a, &House::b, &House::c}, true, false, L"a", L"al"},
        {&House::b, {&House::b}, false, true, L"ab", L"abac"},
    };
    int thrown = 0;
    for (const auto& row : rows) {
        CAPTURE(row.twice);
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
