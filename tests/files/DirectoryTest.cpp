#include "ByteIO.h"
#include "ChildProcess.h"
#include "RecordingLog.h"
#include "TempDirectory.h"
#include "TextPrinting.h"

#include <orvi/core/Directory.h>
#include <orvi/core/File.h>
#include <orvi/core/FileMutex.h>

#include <sys/stat.h>

using namespace orvi;

namespace fs = std::filesystem;

namespace {

using Texts = std::vector<String>;
using Extensions = std::vector<const wchar_t*>; // with the null at the end

/** A directory as the functions here want it. */
String inside(const TempDirectory& place, const char* name = "")
{
    return place.name(name) + (*name != 0 ? L"/" : L"");
}

Texts sorted(Texts texts)
{
    std::sort(texts.begin(), texts.end());
    return texts;
}

/** What a scan reports, in its order, without the path in front. */
Texts scan(const String& path, Extensions extensions = {}, bool recursive = true)
{
    std::list<String> files;
    scanFiles(files, path, extensions.empty() ? nullptr : extensions.data(), recursive);
    Texts names;
    for (const String& file : files) {
        REQUIRE(file.find(path) == 0);
        names.push_back(file.getSubString(path.getLength(), -1));
    }
    return names;
}

/** Makes files, and the directories that they need. */
void makeFiles(const TempDirectory& place, const std::vector<fs::path>& names)
{
    for (const fs::path& name : names) {
        fs::create_directories((place.path() / name).parent_path());
        if (name.has_filename())
            place.write(name);
    }
}

std::string readWhole(const String& path)
{
    const Handle_T<File> file = File::createInstance();
    return file->open(path, File::readOnly, 0) ? take(*file, 256) : "(does not open)";
}

/** Puts the current directory back. */
struct KeepDirectory {
    ~KeepDirectory() { fs::current_path(before); }
    const fs::path before = fs::current_path();
};

} // namespace

TEST_CASE("the current directory is told and set")
{
    const KeepDirectory keep;
    const TempDirectory place;
    const RecordingLog log;
    CHECK(setCurrentDirectory(place.name("")));
    CHECK(getCurrentDirectory() == StringHelper::utf8ToWide(fs::canonical(place.path()).c_str()));
    fs::create_directory(place / "gone");
    CHECK(setCurrentDirectory(L"gone"));
    CHECK(log.lines().empty());
    fs::remove(place / "gone");
    CHECK(getCurrentDirectory().isEmpty());
    CHECK((!setCurrentDirectory(L"none") && !setCurrentDirectory(nullptr)));
    CHECK(log.count(RecordingLog::Level::Error, L"GetCurrentDirectory : No such file or directory") == 1);
    CHECK(log.count(RecordingLog::Level::Error, L"SetCurrentDirectory : No such file or directory") == 2);
}

TEST_CASE("a chain of directories is made below a base")
{
    const KeepDirectory keep;
    const RecordingLog log;
    const mode_t before = umask(027);
    const auto check = [](const String& path, const String& base, const Texts& expected) {
        CAPTURE(path);
        const TempDirectory place;
        fs::current_path(place.path());
        fs::create_directory("x");
        place.write("file");
        for (int i = 0; i < 2; ++i)
            createDirectory(path, base);
        Texts made;
        for (const auto& entry : fs::recursive_directory_iterator(".")) {
            if (entry.path() != "./x" && entry.path() != "./file")
                made.push_back(StringHelper::utf8ToWide(entry.path().c_str() + 2));
            CHECK((!entry.is_directory() || entry.status().permissions() == fs::perms(0750)));
        }
        CHECK(sorted(made) == expected);
    };
    check(L"a//b/c/", L"x/", {L"x/a", L"x/a/b", L"x/a/b/c"});
    check(L"a/b", L"", {L"a", L"a/b"});
    check(L"a\\b", L"", {L"a\\b"}); // is one name
    check(L"", L"y/", {});
    check(L"a/b", L"y/", {}); // the base is missing
    check(L"file/a", L"", {});
    check(L"a", L"x/p", {L"x/pa"});
    umask(before);
    CHECK(log.lines().empty());
}

TEST_CASE("subdirectories are listed by name, without hidden ones and without descending")
{
    const TempDirectory place;
    makeFiles(place, {"files/file", "a/inner/", "b/", ".hidden/"});
    for (const char* target : {"a", "files/file", "nowhere"})
        fs::create_symlink(target, place.path() / ("link-" + std::to_string(*target)));
    const KeepDirectory keep;
    fs::current_path(place / "a");
    Texts names = {L"before"};
    for (const String& path : {inside(place), inside(place, "files"), inside(place, "none"), String()})
        scanDirectories(path, names);
    CHECK(names.front() == L"before");
    CHECK(sorted(names) == Texts{L"a", L"b", L"before", L"files", L"inner", L"link-97"});
}

TEST_CASE("files are picked by what stands behind their last dot, in any case")
{
    const TempDirectory place;
    makeFiles(place,
              {"a.txt", "B.TXT", "txt", "a.txt.bak", "c.", "d.png", ".txt", ".e.txt", "directory.txt/"});
    const auto find = [&](const Extensions& extensions) { return sorted(scan(inside(place), extensions)); };
    CHECK(find({L"tXt", nullptr}) == Texts{L"B.TXT", L"a.txt"});
    CHECK(find({L"png", L"bak", nullptr}) == Texts{L"a.txt.bak", L"d.png"});
    CHECK(find({L"png", L"Png", nullptr}) == Texts{L"d.png", L"d.png"});
    CHECK(find({L"txt.bak", nullptr}).empty());
    CHECK(find({L"", nullptr}) == Texts{L"c."});
    CHECK(find({nullptr}) == Texts{L"B.TXT", L"a.txt", L"a.txt.bak", L"c.", L"d.png", L"txt"});
    CHECK(find({}) == find({nullptr})); // no array
}

TEST_CASE("a directory's own files come first, and hidden and closed things not at all")
{
    const TempDirectory place;
    makeFiles(place, {"top", "p/one", "p/q/two", "r/three", ".hidden/four", ".hidden/s/five", ".six"});
    mkfifo((place / "pipe").c_str(), 0666);
    CHECK(scan(inside(place), {}, false) == Texts{L"top"});
    CHECK(sorted(scan(inside(place))) == Texts{L"p/one", L"p/q/two", L"r/three", L"top"});
    CHECK(sorted(scan(inside(place, ".hidden"))) == Texts{L"four", L"s/five"}); // it is named itself
    CHECK(scan(inside(place)).front() == L"top");
    CHECK(scan(inside(place, "p")) == Texts{L"one", L"q/two"});
    for (const char* none : {"none", "top"})
        CHECK(scan(inside(place, none)).empty());
    fs::permissions(place.path(), fs::perms(0755));
    fs::permissions(place / "p", fs::perms::none);
    CHECK(succeedsInChild([&] {
        constexpr uid_t nobody = 65534;
        REQUIRE((geteuid() != 0 || setuid(nobody) == 0)); // root may read everything
        REQUIRE(sorted(scan(inside(place))) == Texts{L"r/three", L"top"});
    }));
    fs::permissions(place / "p", fs::perms::owner_all);
}

TEST_CASE("links are what they lead to, and circles of them come to an end")
{
    const TempDirectory place;
    makeFiles(place, {"tree/sub/file", "elsewhere/other", "elsewhere/deeper/last"});
    const char* const links[][2] = {{"tree/to-file", "sub/file"},
                                    {"tree/dangling", "nowhere"},
                                    {"tree/itself", "itself"},
                                    {"tree/sub/up", ".."},
                                    {"tree/to-elsewhere", "../elsewhere"},
                                    {"tree/to-elsewhere-again", "../elsewhere"},
                                    {"tree/to-deeper", "../elsewhere/deeper"},
                                    {"elsewhere/back", "../tree"}};
    for (const auto& [link, target] : links)
        fs::create_symlink(target, place / link);
    for (char c = 'a'; c < 'k'; ++c) // whatever the order of the listing, most come before or most behind
        fs::create_symlink("sub", place / "tree" / std::string(1, c));
    CHECK(sorted(scan(inside(place, "tree"))) ==
          Texts{L"sub/file", L"to-deeper/last", L"to-elsewhere/other", L"to-file"});
}

TEST_CASE("a callback that has enough ends its directory, and what lies beside goes on")
{
    const TempDirectory place;
    makeFiles(place, {"a/1.x", "a/2.x", "a/inner/3", "b/1.x", "b/2.x", "b/inner/3"});
    struct Refusal {
        Texts offered;
        bool take(const String& path)
        {
            offered.push_back(path.getSubString(0, path.getLength() - 3));
            return false;
        }
    } all, matches;
    scanFiles({&all, &Refusal::take}, inside(place), nullptr, true); // one of each, and nothing below them
    CHECK(sorted(all.offered) == Texts{inside(place, "a"), inside(place, "b")});
    const wchar_t* extensions[] = {L"x", L"X", nullptr}; // which match one file twice
    scanFiles({&matches, &Refusal::take}, inside(place, "a"), extensions, true);
    CHECK(matches.offered.size() == 1);
}

TEST_CASE("names that are no UTF-8 lead back to their files")
{
    const TempDirectory place;
    const RecordingLog log;
    // Another code page, characters that are cut, one byte too many, overlong, a surrogate, beyond Unicode, and the
    // replacement character itself.
    std::vector<std::string> names = {
        "caf\xE9",  "\xC3",         "\xE2\x82",         "\xF0\x9F\x98", "\xF0\x9F\x98\x80\x98",
        "\xC0\xAF", "\xED\xA0\x80", "\xF4\x90\x80\x80", "\xEF\xBF\xBD"};
    for (int byte = 0x80; byte <= 0xFF; ++byte)
        names.push_back("byte-" + std::string(1, static_cast<char>(byte)) + "-");
    for (const std::string& name : names) {
        fs::create_directory(place.path() / name);
        place.write(fs::path(name) / name, name);
    }
    std::vector<std::string> contents;
    for (const String& name : scan(inside(place)))
        contents.push_back(readWhole(inside(place) + name));
    std::sort(contents.begin(), contents.end());
    std::sort(names.begin(), names.end());
    CHECK(contents == names);

    Texts directories;
    scanDirectories(inside(place), directories);
    for (const String& name : directories)
        createDirectory(name + L"+", inside(place));
    for (const std::string& name : names)
        CHECK(fs::is_directory(place.path() / (name + "+")));
    CHECK(log.lines().empty());
}

TEST_CASE("every way to a file takes a name that is no UTF-8")
{
    const KeepDirectory keep;
    const TempDirectory place;
    const fs::path odd = place.path() / "\xFF\xFE";
    fs::create_directory(odd);
    REQUIRE(setCurrentDirectory(inside(place) + L"\xDCFF\xDCFE"));
    const String here = getCurrentDirectory();
    CHECK(here.find(L"/\xDCFF\xDCFE") > 0);

    const Handle_T<FileMutex> mutex = FileMutex::createInstance(here + L"/lock\xDC80");
    CHECK((mutex->lock(0) && fs::remove(odd / "lock\x80")));
    CHECK(succeedsInChild([&] {
        setenv("TMPDIR", odd.c_str(), 1);
        const String made = TempFile::getTempFileName();
        REQUIRE(here + L"/" + scan(here + L"/").at(0) == made);
    }));
    // What is no byte, and so no path of anybody's, stays the replacement character.
    const Handle_T<File> file = File::createInstance();
    CHECK(file->open(L"\xD800\xDC7F\xDD00", File::writeOnly | File::create, 3));
    CHECK(fs::exists(odd / "\xF0\x90\x81\xBF\xEF\xBF\xBD"));
}

TEST_CASE("a tree that is deeper than any path is made, scanned and read")
{
    const TempDirectory place;
    const RecordingLog log;
    const auto descriptors = [] { return std::distance(fs::directory_iterator("/proc/self/fd"), {}); };
    const auto before = descriptors();
    const String directory = StringHelper::utf8ToWide(std::string(199, 'd').c_str());
    String bottom = inside(place);
    for (int i = 0; i < 50; ++i)
        bottom += directory + L"/"; // 10,000 characters, where the system takes 4095
    createDirectory(bottom, L"");
    const String path = bottom + L"file";
    const Handle_T<File> file = File::createInstance();
    REQUIRE((file->open(path, File::writeOnly | File::create, 3) && put(*file, "deep") == 4));
    file->close();
    CHECK(scan(inside(place)) == Texts{path.getSubString(inside(place).getLength(), -1)});
    CHECK((readWhole(path) == "deep" && getFileSize(path) == 4));
    Texts names;
    scanDirectories(bottom.getSubString(0, bottom.getLength() - 200), names);
    CHECK((names == Texts{directory} && log.lines().empty()));

    // What is wrong on a long way is told like on a short one.
    for (const String& wrong :
         {inside(place) + L"none/" + bottom, bottom + L"none", place.name(std::string(5000, 'x').c_str())})
        CHECK_FALSE(file->open(wrong, File::readOnly, 0));
    CHECK(log.count(RecordingLog::Level::Error, L"ENOENT") == 2);
    CHECK(log.count(RecordingLog::Level::Error, L"ENAMETOOLONG") == 1);
    CHECK(descriptors() == before);
}

TEST_CASE("the program knows where it lies")
{
    constexpr char mark[] = "ORVI_TEST_PROGRAM_COPY";
    if (const char* own = std::getenv(mark)) { // this is a copy, at an odd place, which removes itself
        const String name = getAppName();
        CHECK(name == getAppPath() + L"copy (deleted)");
        CHECK(name.find(L"/\xDCFC\xDCFF/copy") > 0);
        CHECK(isFileExists(name));
        fs::remove(own);
        CHECK(getAppName() == name);
        return;
    }
    const TempDirectory place;
    const fs::path copy = place.path() / "\xFC\xFF" / "copy (deleted)";
    fs::create_directory(copy.parent_path());
    fs::copy_file("/proc/self/exe", copy);
    CHECK(succeedsInChild([&] {
        setenv(mark, copy.c_str(), 1);
        execl(copy.c_str(), copy.c_str(), "-tc=the program knows where it lies", nullptr);
        REQUIRE(false);
    }));
}
