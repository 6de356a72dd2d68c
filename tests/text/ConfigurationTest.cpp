#include "RecordingLog.h"
#include "TempDirectory.h"
#include "TextPrinting.h"

#include <orvi/core/Configuration.h>
#include <orvi/core/MemoryFile.h>

#include <string>

using namespace orvi;

namespace {

const std::string sample = "stray = 0\n"
                           "[Net] # no header with this behind it\n"
                           "  [Net]\r\n# port = 1\nport=8080\r\n"
                           "  Host\t=  example # 5  \n"
                           "dotted.key = 1\nspaced key = 2\nbare\nempty =  \n"
                           "port = 9\non = TRUE\n"
                           "[Other]\nport = 99\nword = abc\nyes = yes\nsame == x\n\xC3\xA9 = 3\nfar = -12abc";

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
        CAPTURE(row[1]);
        CHECK(getConfigString(file, row[0], row[1], L"default") == row[2]);
    }
    const TempDirectory directory;
    directory.write("sample.conf", sample);
    CHECK(getConfigString(directory.name("sample.conf"), L"Other", L"port", L"") == L"99");
    // As numbers and as truth.
    CHECK(getConfigInteger(file, L"Net", L"word", 5) == 0);
    CHECK(getConfigInteger(file, L"Net", L"far", 5) == -12);
    CHECK(getConfigInteger(file, L"Net", L"missing", -2147483647 - 1) == -2147483647 - 1);
    CHECK(getConfigBoolean(file, L"Net", L"on", false));
    CHECK((!getConfigBoolean(file, L"Net", L"yes", true) && !getConfigBoolean(file, L"Net", L"port", true)));
    CHECK(getConfigBoolean(file, L"Net", L"missing", true));

    const Handle_T<MemoryFile> small = memoryFile("[A]\nx = 1\ny = 2\n");
    CHECK(getConfigInteger(small, L"A", L"x", 0) == 1);
    CHECK(small->getPosition() == 10); // behind the line that gave the value
}

TEST_CASE("what cannot be read gives the default")
{
    const RecordingLog log;
    Archive* const none = nullptr;
    CHECK((getConfigString(none, L"A", L"x", L"d") == L"d" && getConfigInteger(none, L"A", L"x", 3) == 3));
    // The mark hides the header.
    CHECK(getConfigString(memoryFile("\xEF\xBB\xBF[A]\nx=1\n"), L"A", L"x", L"d") == L"d");
    CHECK(log.errors().empty());
    const TempDirectory directory;
    CHECK((getConfigString(directory.name("missing"), L"A", L"x", L"d") == L"d" && log.errors().size() == 1));
    CHECK(getConfigInteger(String(), L"A", L"x", 3) == 3);
}
