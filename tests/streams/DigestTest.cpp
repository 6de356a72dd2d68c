#include <orvi/core/Base64.h>
#include <orvi/core/Digest.h>

#include <doctest/doctest.h>

#include <algorithm>
#include <string>

using namespace orvi;

namespace {

const String noDigest = L"00000000000000000000000000000000";

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

TEST_CASE("MD5 gives the digests of the standard")
{
    const struct {
        const char* text;
        const wchar_t* digest;
    } rows[] = {
        {"", L"d41d8cd98f00b204e9800998ecf8427e"},
        {"a", L"0cc175b9c0f1b6a831c399e269772661"},
        {"abc", L"900150983cd24fb0d6963f7d28e17f72"},
        {"message digest", L"f96b697d7cb7938d525a2f31aaf161d0"},
        {"abcdefghijklmnopqrstuvwxyz", L"c3fcd3d76192e4007dfb496cca67e13b"},
        {"ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789",
         L"d174ab98d277d9f5a5611c2c9f419d9f"},
        {"12345678901234567890123456789012345678901234567890123456789012345678901234567890",
         L"57edf4a22be3c955ac49da2e2107b67a"},
    };
    for (const auto& row : rows) {
        CAPTURE(row.text);
        CHECK(md5(row.text, 1000) == row.digest);
        CHECK(md5(row.text, 1) == row.digest);
    }
}

TEST_CASE("MD5 pads at every place of a block")
{
    const struct {
        std::size_t size;
        const wchar_t* digest;
    } rows[] = {
        // of as many letters x
        {55, L"04364420e25c512fd958a70738aa8f72"},  {56, L"668a72d5ba17f08e62dabcafad6db14b"},
        {63, L"7dc2ca208106a2f703567bdff99d8981"},  {64, L"c1bb4f81d892b2d57947682aeb252456"},
        {119, L"ab347a5f68c8a443cfcddc633f12c24f"}, {120, L"fb98667f98096de92620b64f46e1c5b5"},
    };
    for (const auto& row : rows)
        CHECK(md5(std::string(row.size, 'x'), row.size) == row.digest);

    for (std::size_t size = 50; size < 140; ++size) {
        const std::string text(size, 'x');
        const String whole = md5(text, size);
        CAPTURE(size);
        CHECK(md5(text, 7) == whole);
        CHECK(md5(text, 64) == whole);
        CHECK(md5(text, 65) == whole);
    }
}

TEST_CASE("an MD5 context carries its count into the high word")
{
    MD5Context context;
    MD5Init(&context);
    context.count[0] = 0xFFFFFE00; // as if 512 MiB less 64 bytes had gone in
    MD5Update(&context, std::string(65, 'x').data(), 65);
    CHECK(context.count[0] == 8);
    CHECK(context.count[1] == 1);
}

TEST_CASE("an MD5Checksum has a text form")
{
    MD5Checksum checksum;
    CHECK(checksum.convertToString() == noDigest);
    CHECK(checksum.convertFromString(L"D41D8CD98F00B204E9800998ECF8427E"));
    CHECK(checksum.convertToString() == L"d41d8cd98f00b204e9800998ecf8427e");
    MD5Checksum copy;
    copy = checksum;
    CHECK(copy == checksum);
    for (const wchar_t* bad : {L"d41d8cd98f00b204e9800998ecf8427", L"d41d8cd98f00b204e9800998ecf8427e0",
                               L"d41d8cd98f00b204e9800998ecf8427g", L""}) {
        copy = checksum;
        CHECK(!copy.convertFromString(bad));
        CHECK(copy.getBufferSize() == 0);
    }
}

TEST_CASE("Base64 follows the standard")
{
    const struct {
        const char* bytes;
        const wchar_t* text;
    } rows[] = {
        {"", L""},
        {"f", L"Zg=="},
        {"fo", L"Zm8="},
        {"foo", L"Zm9v"},
        {"foob", L"Zm9vYg=="},
        {"fooba", L"Zm9vYmE="},
        {"foobar", L"Zm9vYmFy"},
        {"\xFB\xFF\xFE", L"+//+"},
    };
    for (const auto& row : rows) {
        const std::string bytes = row.bytes;
        CAPTURE(String(row.text));
        const int size = static_cast<int>(bytes.size());
        CHECK(base64_encode(bytes.data(), size) == row.text);
        CHECK(base64_datasize(row.text) == size);
        std::string decoded(bytes.size(), '\0');
        CHECK(base64_decode(row.text, decoded.data()) == size);
        CHECK(decoded == bytes);
    }
    CHECK(base64_encode("x", -1).isEmpty());
}

TEST_CASE("Base64 round-trips all bytes and all texts")
{
    std::string bytes;
    for (int i = 0; i < 256; ++i)
        bytes += static_cast<char>(i);
    const String text = base64_encode(bytes.data(), 256);
    std::string decoded(256, '\0');
    CHECK(base64_decode(text, decoded.data()) == 256);
    CHECK(decoded == bytes);
    for (const wchar_t* each : {L"", L"plain", L"\u0416\u20AC\U0001F600"})
        CHECK(base64_decode(base64_encode(String(each))) == each);
}

TEST_CASE("Base64 stops at the first character outside the alphabet")
{
    const struct {
        const wchar_t* text;
        int datasize;
        std::string decoded;
    } rows[] = {
        {L"Zm9vY", 3, ""}, // no multiple of 4
        {L"Zm9", 0, ""},
        {L"Zm9vYm!yZm9v", 9, "foob"},
        {L"Zm9vY!!!", 6, "foo"},
        {L"!m9v", 3, ""},
        {L"Zm9v\u0161m8=", 5, "foo"}, // its low byte is a letter
        {L"Zm=vZm9v", 6, "f"},
        {L"====", 0, ""},
        {L"Zm9v====", 2, "foo"}, // more than base64_datasize tells
    };
    for (const auto& row : rows) {
        CAPTURE(String(row.text));
        CHECK(base64_datasize(row.text) == row.datasize);
        char data[16];
        const int size = base64_decode(row.text, data);
        CHECK(std::string(data, static_cast<std::size_t>(size)) == row.decoded);
        CHECK(base64_decode(row.text) == base64_decode(base64_encode(row.decoded.data(), size)));

        char bounded[3] = {'x', 'x', 'x'};
        CHECK(base64_decode(row.text, bounded, 2) == size);
        CHECK(bounded[2] == 'x');
    }
}
