#include "Input.h"

#include <orvi/core/Base64.h>
#include <orvi/core/Buffer.h>

#include <algorithm>

using namespace orvi;
using fuzz::expect;

namespace {

bool holds(const Buffer& buffer, const std::vector<unsigned char>& bytes)
{
    const auto* held = static_cast<const unsigned char*>(buffer.getBuffer());
    return std::equal(bytes.begin(), bytes.end(), held, held + buffer.getBufferSize());
}

void checkBytes(const std::uint8_t* data, std::size_t size)
{
    const std::vector<unsigned char> bytes(data, data + size);
    const String text = base64_encode(bytes.data(), static_cast<int>(size));
    expect(text.getLength() == static_cast<int>((size + 2) / 3 * 4), "3 bytes make 4 characters");
    expect(base64_datasize(text) == static_cast<int>(size),
           "the size of an encoded text is that of the bytes");
    Buffer buffer;
    expect(buffer.convertFromBase64(text) && holds(buffer, bytes), "what was encoded decodes");
    expect(buffer.convertToBase64() == text, "a Buffer encodes as the functions do");
}

void checkText(const String& text, int capacity)
{
    std::vector<unsigned char> whole(static_cast<std::size_t>(text.getLength()) / 4 * 3);
    const int size = base64_decode(text, whole.data());
    expect(size >= 0 && static_cast<std::size_t>(size) <= whole.size(), "4 characters make 3 bytes at most");
    whole.resize(static_cast<std::size_t>(size));

    std::vector<unsigned char> part(static_cast<std::size_t>(capacity));
    expect(base64_decode(text, part.data(), capacity) == size, "the capacity does not change the count");
    expect(std::equal(part.begin(), part.begin() + std::min(capacity, size), whole.begin()),
           "the capacity does not change the bytes");

    Buffer buffer(7);
    const bool isBase64 = text.getLength() % 4 == 0 && size == base64_datasize(text);
    expect(buffer.convertFromBase64(text) == isBase64, "a Buffer takes whole texts alone");
    expect(!isBase64 || holds(buffer, whole), "a Buffer decodes as the functions do");
    whole.push_back(0);
    expect(base64_decode(text) == StringHelper::utf8ToWide(reinterpret_cast<const char*>(whole.data())),
           "bytes are read as UTF-8");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    checkBytes(data, size);
    fuzz::Input input(data, size);
    const int capacity = input.takeByte();
    const String text = input.takeText();
    checkText(text, capacity);
    const String clean =
        StringHelper::utf8ToWide(StringHelper::wideToUtf8(text)); // NULs end it, halves are gone
    expect(base64_decode(base64_encode(clean)) == clean, "text that was encoded decodes");
    return 0;
}
