#include "TextPrinting.h"

#include <orvi/core/Base64.h>
#include <orvi/core/Buffer.h>
#include <orvi/core/Digest.h>

#include <algorithm>
#include <utility>

using namespace orvi;

namespace {

Buffer bufferOf(const std::string& bytes)
{
    Buffer buffer(static_cast<int>(bytes.size()));
    std::copy(bytes.begin(), bytes.end(), static_cast<char*>(buffer.getBuffer()));
    return buffer;
}

/** The digest of a text that arrives in pieces. */
String md5(const std::string& text, std::size_t piece)
{
    MD5Context context;
    MD5Init(&context);
    for (std::size_t i = 0; i < text.size(); i += piece)
        MD5Update(&context, text.data() + i, static_cast<unsigned int>(std::min(piece, text.size() - i)));
    MD5Checksum checksum;
    MD5Final(&checksum, &context);
    return checksum.convertToString();
}

} // namespace

TEST_CASE("a Buffer owns a block of its exact size, which copies copy and moves take over")
{
    CHECK(Buffer(-1) == Buffer());
    Buffer source = bufferOf("abc");
    const void* block = source;
    CHECK((source.setBufferSize(3) == 3 && source.getBuffer() == block && source == bufferOf("abc")));
    Buffer copy(source);
    CHECK((copy == source && copy.getBuffer() != block));
    copy = bufferOf("xyz");
    copy = static_cast<const Buffer&>(copy);
    CHECK((copy == bufferOf("xyz") && copy != source));
    CHECK(copy.setBufferSize(5000) == 5000);
    CHECK((copy.setBufferSize(-5) == 0 && copy == Buffer()));

    Buffer moved(std::move(source));
    CHECK(source == Buffer()); // a moved-from Buffer is empty
    copy = std::move(moved);
    CHECK(copy.getBuffer() == block);
}

TEST_CASE("a Buffer reads and writes hexadecimal text and Base64")
{
    Buffer buffer = bufferOf("old");
    CHECK((!buffer.convertFromHex(L"abc") && buffer == bufferOf("old")));
    CHECK((buffer.convertFromHex(L"aB0109fF") && buffer == bufferOf("\xAB\x01\x09\xFF")));
    CHECK(buffer.convertToHex() == L"ab0109ff");
    CHECK((!buffer.convertFromHex(L"41zz41") && buffer.getBufferSize() == 3));
    for (const wchar_t* text : {L"zz", L"0g", L"/0", L":0", L"@0", L"`0", L"\u01300"})
        CHECK(!buffer.convertFromHex(text));
    CHECK((buffer.convertFromHex(L"") && buffer == Buffer()));
    CHECK(buffer.convertToHex().isEmpty());

    CHECK((buffer.convertFromBase64(L"Zm9vYg==") && buffer == bufferOf("foob")));
    CHECK(buffer.convertToBase64() == L"Zm9vYg==");
    // The last ones stand for more bytes than their size tells.
    for (const wchar_t* bad : {L"Z", L"Zg=", L"Zm9vY", L"Zm9v!g==", L"Zm9v====", L"Zm9vZm9v========"})
        CHECK(!buffer.convertFromBase64(bad));
    CHECK(buffer.convertFromBase64(L"Zm9v"));
    CHECK(!buffer.convertFromBase64(L"Zg="));
    CHECK(buffer == Buffer()); // the old contents are not taken for those of the text
}

TEST_CASE("MD5 gives the digests of the standard, whatever the pieces and the place of the padding")
{
    const std::pair<std::string, const wchar_t*> rows[] = {
        {"", L"d41d8cd98f00b204e9800998ecf8427e"},
        {"abc", L"900150983cd24fb0d6963f7d28e17f72"},
        {std::string(55, 'x'), L"04364420e25c512fd958a70738aa8f72"},
        {std::string(56, 'x'), L"668a72d5ba17f08e62dabcafad6db14b"},
        {std::string(64, 'x'), L"c1bb4f81d892b2d57947682aeb252456"},
    };
    for (const auto& [text, digest] : rows)
        for (const std::size_t piece : {1u, 7u, 64u, 65u, 1000u})
            CHECK(md5(text, piece) == digest);
    MD5Context context;
    MD5Init(&context);
    context.count[0] = 0xFFFFFE00; // as if 512 MiB less 64 bytes had gone in
    MD5Update(&context, std::string(65, 'x').data(), 65);
    CHECK((context.count[0] == 8 && context.count[1] == 1));

    MD5Checksum checksum;
    CHECK(checksum.convertToString() == L"00000000000000000000000000000000");
    const String text = L"d41d8cd98f00b204e9800998ecf8427";
    for (const wchar_t* bad : {L"", L"e0", L"g"}) {
        CHECK(checksum.convertFromString(L"D41D8CD98F00B204E9800998ECF8427E"));
        CHECK(checksum.convertToString() == text + L"e");
        CHECK((!checksum.convertFromString(text + bad) && checksum.getBufferSize() == 0));
    }
}

TEST_CASE("Base64 follows the standard, and stops at the first character outside the alphabet")
{
    const auto check = [](const String& text, int dataSize, const std::string& bytes, bool isWhole = false) {
        CAPTURE(text);
        CHECK(base64_datasize(text) == dataSize);
        char data[256] = {};
        const int size = base64_decode(text, data);
        CHECK(std::string(data, static_cast<std::size_t>(size)) == bytes);
        CHECK((base64_encode(data, size) == text) == isWhole);
        CHECK(base64_decode(text) == StringHelper::utf8ToWide(bytes.c_str()));
        char bounded[3] = {'x', 'x', 'x'};
        CHECK((base64_decode(text, bounded, 2) == size && bounded[2] == 'x'));
    };
    check(L"", 0, "", true);
    check(L"Zm8=", 2, "fo", true);
    check(L"Zm9vYmE=", 5, "fooba", true);
    check(L"Zm9vY", 3, ""); // no multiple of 4
    check(L"Zm9vYm!yZm9v", 9, "foob");
    check(L"Zm9v\u0161m8=", 5, "foo"); // its low byte is a letter
    check(L"Zm=vZm9v", 6, "f");
    check(L"Zm9v====", 2, "foo"); // more than base64_datasize tells
    std::string bytes;
    for (int i = 255; i >= 0; --i)
        bytes += static_cast<char>(i);
    const String text = base64_encode(bytes.data(), 256);
    check(text, 256, bytes, true);
    CHECK(text.find(L"//79/Pv6") == 0);
    CHECK(base64_encode("x", -1).isEmpty());
}
