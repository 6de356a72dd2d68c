#include "RecordingLog.h"
#include "TextPrinting.h"

#include <orvi/core/Exception.h>
#include <orvi/core/MemoryStream.h>
#include <orvi/core/Unknown.h>

using orvi::Handle_T;
using orvi::InputStream;
using orvi::MemoryStream;
using orvi::OutputStream;
using orvi::String;
using orvi::Unknown;

namespace {

class ClonedValue : public Unknown {
    ORVI_DECLARE_CLASS(ClonedValue);

public:
    void importFrom(InputStream& stream) override { stream >> number >> text; }
    void exportTo(OutputStream& stream) const override
    {
        if (number < 0)
            THROW_EXCEPTION(-1, L"a negative number");
        stream << number << text;
    }

    int number = 0;
    String text;
};
ORVI_DEFINE_CLASS(ClonedValue);

class Unregistered : public ClonedValue {};

} // namespace

TEST_CASE("a clone is a deep copy of the dynamic class")
{
    const RecordingLog log;
    const Handle_T<ClonedValue> value = new ClonedValue;
    value->number = 7;
    value->text = L"seven";
    const Handle_T<Unknown> base = value;
    const Handle_T<ClonedValue> clone = base->clone();
    REQUIRE_FALSE(clone.isNull());
    CHECK(clone != value);
    CHECK(clone->number == 7);
    CHECK(clone->text == L"seven");

    class Plain : public Unknown {
    public:
        Handle_T<Unknown> rtCreateInstance() const override { return new Plain; }
    };
    CHECK_FALSE(Handle_T<Plain>(new Plain)->clone().isNull());
    CHECK(log.lines().empty());
}

TEST_CASE("a clone that cannot be made is null, with the reason in the log")
{
    const RecordingLog log;
    CHECK(Handle_T<Unregistered>(new Unregistered)->clone().isNull());
    REQUIRE(log.errors().size() == 1);
    CHECK(log.errors()[0] ==
          L"Call rtCreateInstance(ClonedValue) error! typeid(" + orvi::typeName(typeid(Unregistered)) + L")");

    log.clear();
    const Handle_T<ClonedValue> value = new ClonedValue;
    value->number = -1;
    CHECK(value->clone().isNull());
    CHECK(log.count(RecordingLog::Level::Error, L"a negative number") == 1);
}

TEST_CASE("the clone of a stream has its own bytes")
{
    const Handle_T<MemoryStream> stream = MemoryStream::createInstance();
    CHECK(stream->write("hello", 5) == 5);
    const Handle_T<MemoryStream> clone = stream->clone();
    char bytes[10];
    CHECK(clone->read(bytes, 10) == 5);
    CHECK(clone->write("x", 1) == 1);
    CHECK(stream->read(bytes, 10) == 5);
    CHECK(std::string(bytes, 5) == "hello");
    CHECK(Unknown::RtFactory::createClassInstance(L"MemoryStream")->getClassName() == L"MemoryStream");
}
