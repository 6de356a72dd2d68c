#include "TextPrinting.h"

#include "RecordingLog.h"

#include <orvi/core/Core.h>

#include <vector>

using Utf8 = orvi::String_T<char>;

TEST_CASE("a text too large for its length is not made, and the log says so")
{
    std::vector<char> large(1'100'000'000, 'x');
    Utf8 text;
    text.setBuffer(large.data(), static_cast<int>(large.size()));
    large = {};
    const RecordingLog log;
    const Utf8 sum = text + text; // 2.2 GB: more than getBufferLength could tell
    CHECK(sum.isEmpty());
    CHECK(text.insert(0, text) == 1'100'000'000);
    REQUIRE(log.lines().size() == 2);
    CHECK(log.lines()[0].text == L"Allocate memory(2200000013) error!");
}
