#pragma once
#include "Minidump.h"
#include "base/ProcFile.h"
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

namespace orvi::debug {

/** Writes a minidump: data first, then the directory of its streams, and the header last, so that a file that was
    not finished does not look like a dump. A write that fails makes all later ones do nothing. Signal-safe. */
class DumpFile {
public:
    explicit DumpFile(int file)
        : _file(file)
    {}
    DumpFile(const DumpFile&) = delete;
    DumpFile& operator=(const DumpFile&) = delete;

    std::uint32_t beginBlock(); // gives its offset
    void extendBlock(const void* bytes, std::size_t size);
    /** From its offset to where the file ends now. */
    minidump::Location endBlock(std::uint32_t offset) const;

    template <class Record>
    minidump::Location add(const Record& record)
    {
        return addBytes(&record, sizeof record);
    }
    minidump::Location addBytes(const void* bytes, std::size_t size);
    std::uint32_t addText(std::string_view utf8); // gives its offset

    void addStream(minidump::StreamType type, minidump::Location location);
    void addFile(minidump::StreamType type, ProcFile& source);
    template <class Record>
    void addList(minidump::StreamType type, std::span<const Record> records)
    {
        addListBytes(type, records.size(), records.data(), records.size_bytes());
    }

    /** False when the dump is not whole. */
    bool finish();

private:
    void addListBytes(minidump::StreamType type, std::size_t count, const void* bytes, std::size_t size);
    void writeAt(std::uint64_t offset, const void* bytes, std::size_t size);

    int _file;
    bool _failed = false;
    std::uint64_t _end = sizeof(minidump::Header);
    minidump::DirectoryEntry _directory[16];
    std::uint32_t _streamCount = 0;
};

} // namespace orvi::debug
