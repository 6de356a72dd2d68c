#include "RecordingLog.h"
#include "TempDirectory.h"
#include "TextPrinting.h"

#include <orvi/core/Configuration.h>
#include <orvi/core/MemoryFile.h>

#include <fstream>
#include <string>

using orvi::Archive;
using orvi::getConfigBoolean;
using orvi::getConfigInteger;
using orvi::getConfigString;
using orvi::Handle_T;
using orvi::MemoryFile;
using orvi::String;

namespace {

const std::string sample = "stray = 0\n"
                           "[Net] # no header with this behind it\n"
                           "  [Net]\r\n"
                           "# port = 1\n"
                           "port=8080\r\n"
                           "  Host\t=  example # 5  \n"
                           "dotted.key = 1\n"
                           "spaced key = 2\n"
                           "bare\n"
                           "empty =  \n"
                           "port = 9\n"
                           "on = TRUE\n"
                           "[Other]\n"
                           "port = 99\n"
                           "word = abc\n"
                           "yes = yes\n"
                           "same == x\n"
                           "\xC3\xA9 = 3\n"
                           "far = -12abc";

Handle_T<MemoryFile> memoryFile(const std::string& bytes)
{
    const Handle_T<MemoryFile> file = MemoryFile::createInstance();
    file->write(bytes.data(), static_cast<int>(bytes.size()));
    return file;
}

} // namespace

TEST_CASE("values are found by section and key, in an archive and in a file")
{
    const wchar_t* const rows[][3] = {
        {L"Net", L"port", L"8080"}, // the first of two
        {L"net", L"PORT", L"8080"},        {L"Net", L"host", L"example # 5"},
        {L"Net", L"word", L"abc"}, // from a later section
        {L"Other", L"port", L"99"},        {L"Other", L"same", L"= x"},
        {L"Other", L"on", L"default"}, // from no earlier one
        {L"Net", L"dotted", L"default"},   {L"Net", L"spaced key", L"default"},
        {L"Net", L"bare", L"default"},     {L"Net", L"empty", L"default"},
        {L"Net", L"stray", L"default"},    {L"Net", L"\u00E9", L"default"},
        {L"Missing", L"port", L"default"}, {L"", L"port", L"default"},
    };
    const Handle_T<MemoryFile> file = memoryFile(sample);
    for (const auto& row : rows) {
        CAPTURE(row[0]);
        CAPTURE(row[1]);
        CHECK(getConfigString(file, row[0], row[1], L"default") == row[2]);
    }
    const TempDirectory directory;
    std::ofstream(directory / "sample.conf", std::ios::binary) << sample;
    CHECK(getConfigString(directory.name("sample.conf"), L"Other", L"port", L"") == L"99");
}

TEST_CASE("values as numbers and as truth")
{
    const Handle_T<MemoryFile> file = memoryFile(sample);
    CHECK(getConfigInteger(file, L"Net", L"word", 5) == 0);
    CHECK(getConfigInteger(file, L"Net", L"far", 5) == -12);
    CHECK(getConfigInteger(file, L"Net", L"missing", -2147483647 - 1) == -2147483647 - 1);
    CHECK(getConfigBoolean(file, L"Net", L"on", false));
    CHECK(!getConfigBoolean(file, L"Net", L"yes", true));
    CHECK(!getConfigBoolean(file, L"Net", L"port", true));
    CHECK(getConfigBoolean(file, L"Net", L"missing", true));
}

TEST_CASE("an archive stays behind the line that gave the value")
{
    const Handle_T<MemoryFile> file = memoryFile("[A]\nx = 1\ny = 2\n");
    CHECK(getConfigInteger(file, L"A", L"x", 0) == 1);
    CHECK(file->getPosition() == 10);
}

TEST_CASE("what cannot be read gives the default")
{
    const RecordingLog log;
    Archive* const none = nullptr;
    CHECK(getConfigString(none, L"A", L"x", L"d") == L"d");
    CHECK(getConfigInteger(none, L"A", L"x", 3) == 3);
    // The mark hides the header.
    CHECK(getConfigString(memoryFile("\xEF\xBB\xBF[A]\nx=1\n"), L"A", L"x", L"d") == L"d");
    CHECK(log.errors().empty());
    const TempDirectory directory;
    CHECK(getConfigString(directory.name("missing"), L"A", L"x", L"d") == L"d");
    CHECK(log.errors().size() == 1);
    CHECK(getConfigInteger(String(), L"A", L"x", 3) == 3);
}
