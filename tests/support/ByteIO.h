#pragma once
#include <orvi/core/Stream.h>

#include <algorithm>
#include <cstring>
#include <string>

/** Bytes in memory: what is written behind can be read in front. */
class ByteIO : public orvi::IO {
public:
    static orvi::Handle_T<ByteIO> create(const std::string& bytes = {}) { return new ByteIO(bytes); }

    int available() const override { return static_cast<int>(bytes.size() - position); }
    int peek(void* buffer, int size) const override
    {
        const int count = std::clamp(size, 0, ByteIO::available());
        std::memcpy(buffer, bytes.data() + position, static_cast<std::size_t>(count));
        return count;
    }
    int read(void* buffer, int size) override
    {
        const int count = ByteIO::peek(buffer, size);
        position += static_cast<std::size_t>(count);
        return count;
    }
    int write(const void* data, int size) override
    {
        bytes.append(static_cast<const char*>(data), static_cast<std::size_t>(size));
        return size;
    }

    std::string unread() const { return bytes.substr(position); }

    std::string bytes; // everything ever written
    std::size_t position = 0;

protected:
    explicit ByteIO(const std::string& content)
        : bytes(content)
    {}
};

inline int put(orvi::Output& output, const std::string& bytes)
{
    return output.write(bytes.data(), static_cast<int>(bytes.size()));
}

/** What a read of so many bytes gives. */
inline std::string take(orvi::Input& input, int size)
{
    std::string bytes(static_cast<std::size_t>(size), '\0');
    bytes.resize(static_cast<std::size_t>(std::max(input.read(bytes.data(), size), 0)));
    return bytes;
}

inline std::string look(const orvi::Input& input, int size)
{
    std::string bytes(static_cast<std::size_t>(size), '\0');
    bytes.resize(static_cast<std::size_t>(std::max(input.peek(bytes.data(), size), 0)));
    return bytes;
}

/** The bytes of a text such as "06 61 62 63". */
inline std::string bytesOf(const std::string& hex)
{
    std::string bytes;
    for (std::size_t i = 0; i + 1 < hex.size(); i += 3)
        bytes += static_cast<char>(std::stoi(hex.substr(i, 2), nullptr, 16));
    return bytes;
}

/** "06 61 62 63" for a readable failure of a test. */
inline std::string hexOf(const std::string& bytes)
{
    static constexpr char digits[] = "0123456789ABCDEF";
    std::string hex;
    for (const char byte : bytes) {
        const auto value = static_cast<unsigned char>(byte);
        hex += hex.empty() ? "" : " ";
        hex += digits[value >> 4];
        hex += digits[value & 0x0F];
    }
    return hex;
}
