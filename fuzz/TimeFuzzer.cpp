#include "Input.h"

#include <orvi/core/Time.h>

#include <ctime>
#include <limits>

using namespace orvi;
using fuzz::expect;

namespace {

/** Whether the fields have a text: years below 0 have none, and the last one may stand for any behind it. */
bool isPrintable(const Time& time)
{
    return time.getYear() >= 0 && time.getYear() < std::numeric_limits<int>::max();
}

void checkPrinted(const Time& time, bool withZone)
{
    const String printed = time.convertToString(withZone);
    Time again;
    expect(again.convertFromString(printed), "a printed time can be read");
    expect(again == time, "a printed time is the same time");
    expect(again.convertToString(withZone) == printed, "a time has one text");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    fuzz::Input input(data, size);
    constexpr long zones[] = {0, 18000, -28800, -19800, 12600};
    ::timezone =
        zones[input.takeByte() % std::size(zones)]; // where the library looks; nobody calls tzset here
    const String text = input.takeText();

    const Time before(12345678);
    Time time = before;
    if (!time.convertFromString(text)) {
        expect(time == before, "a text that is no time leaves the object alone");
        return 0;
    }
    if (isPrintable(time)) {
        checkPrinted(time, false);
        if (::timezone % 3600 == 0) // the name of a zone has whole hours
            checkPrinted(time, true);
    }
    const long long value = time.getValue();
    const std::tm fields = orvi::gmtime(value);
    expect(fields.tm_year == std::numeric_limits<int>::max() ||
               fields.tm_year == std::numeric_limits<int>::min() || orvi::mktime(fields) == value,
           "fields and seconds are the same time");
    return 0;
}
