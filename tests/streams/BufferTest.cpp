#include <orvi/core/Buffer.h>

#include <doctest/doctest.h>

#include <algorithm>
#include <string>
#include <utility>

using namespace orvi;

namespace {

Buffer bufferOf(const std::string& bytes)
{
    Buffer buffer(static_cast<int>(bytes.size()));
    std::copy(bytes.begin(), bytes.end(), static_cast<char*>(buffer.getBuffer()));
    return buffer;
}

std::string bytesOf(const Buffer& buffer)
{
    return std::string(static_cast<const char*>(buffer.getBuffer()),
                       static_cast<std::size_t>(buffer.getBufferSize()));
}

} // namespace

TEST_CASE("a Buffer owns a block of its exact size")
{
    for (const int size : {0, -1}) {
        Buffer empty(size);
        CHECK(empty.getBufferSize() == 0);
        CHECK(empty.getBuffer() == nullptr);
    }
    Buffer buffer = bufferOf("abc");
    const void* block = buffer;
    CHECK(buffer.setBufferSize(3) == 3);
    CHECK(buffer.getBuffer() == block);
    CHECK(bytesOf(buffer) == "abc");
    CHECK(buffer.setBufferSize(5000) == 5000);
    CHECK(buffer.setBufferSize(-5) == 0);
    CHECK(buffer.getBuffer() == nullptr);
}

TEST_CASE("copies are deep and moves take the block over")
{
    Buffer source = bufferOf("abc");
    Buffer copy(source);
    CHECK(copy == source);
    CHECK(copy.getBuffer() != source.getBuffer());

    const Buffer other = bufferOf("xyz");
    const void* block = copy.getBuffer();
    copy = other;
    CHECK(copy.getBuffer() == block); // equal sizes keep the block
    CHECK(bytesOf(copy) == "xyz");
    CHECK(copy != source);

    Buffer& self = copy;
    copy = self;
    CHECK(bytesOf(copy) == "xyz");
    copy = Buffer();
    CHECK(copy == Buffer());

    block = source.getBuffer();
    Buffer moved(std::move(source));
    CHECK(moved.getBuffer() == block);
    CHECK(source == Buffer()); // a moved-from Buffer is empty
    copy = std::move(moved);
    CHECK(copy.getBuffer() == block);
}

TEST_CASE("a Buffer reads and writes hexadecimal text")
{
    Buffer buffer = bufferOf("old");
    CHECK(!buffer.convertFromHex(L"abc"));
    CHECK(bytesOf(buffer) == "old");

    CHECK(buffer.convertFromHex(L"aB0109fF"));
    CHECK(bytesOf(buffer) == "\xAB\x01\x09\xFF");
    CHECK(buffer.convertToHex() == L"ab0109ff");

    CHECK(!buffer.convertFromHex(L"41zz41"));
    CHECK(buffer.getBufferSize() == 3);
    CHECK(bytesOf(buffer)[0] == 'A');
    for (const wchar_t* text : {L"zz", L"0g", L"/0", L":0", L"@0", L"`0", L"\u01300"})
        CHECK(!buffer.convertFromHex(text));

    CHECK(buffer.convertFromHex(L""));
    CHECK(buffer == Buffer());
    CHECK(buffer.convertToHex().isEmpty());
}

TEST_CASE("a Buffer reads and writes Base64")
{
    Buffer buffer = bufferOf("foob");
    const String text = buffer.convertToBase64();
    CHECK(text == L"Zm9vYg==");
    Buffer copy;
    CHECK(copy.convertFromBase64(text));
    CHECK(copy == buffer);
    CHECK(copy.convertFromBase64(L""));
    CHECK(copy == Buffer());
    // The last ones stand for more bytes than their size tells.
    for (const wchar_t* bad :
         {L"Z", L"Zg", L"Zg=", L"=", L"Zm9vY", L"Zm9v!g==", L"Zm9v\nYg=", L"Zm9v====", L"Zm9vZm9v========"}) {
        CAPTURE(String(bad));
        CHECK(!copy.convertFromBase64(bad));
    }
    CHECK(buffer.convertFromBase64(L"Zm9v"));
    CHECK(!buffer.convertFromBase64(L"Zg="));
    CHECK(buffer == Buffer()); // the old contents are not taken for those of the text
}
