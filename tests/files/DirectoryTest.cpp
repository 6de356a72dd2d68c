#include "RecordingLog.h"
#include "TempDirectory.h"
#include "TextPrinting.h"

#include <orvi/core/Directory.h>
#include <orvi/core/File.h>
#include <orvi/core/FileMutex.h>
#include <orvi/core/Time.h>

#include <algorithm>
#include <fstream>
#include <functional>
#include <string>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

using orvi::File;
using orvi::Handle_T;
using orvi::String;

namespace fs = std::filesystem;

namespace {

using Texts = std::vector<String>;
using Extensions = std::vector<const wchar_t*>; // with the null at the end

void writeWhole(const fs::path& path, const std::string& bytes = "x")
{
    std::ofstream(path, std::ios::binary) << bytes;
}

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

/** What a scan reports, in its order. */
Texts scan(const String& path, Extensions extensions = {}, bool recursive = true)
{
    std::list<String> files;
    orvi::scanFiles(files, path, extensions.empty() ? nullptr : extensions.data(), recursive);
    return {files.begin(), files.end()};
}

/** The same without the path in front, sorted. */
Texts scanSorted(const String& path, Extensions extensions = {}, bool recursive = true)
{
    Texts names;
    for (const String& file : scan(path, std::move(extensions), recursive)) {
        REQUIRE(file.find(path) == 0);
        names.push_back(file.getSubString(path.getLength(), -1));
    }
    return sorted(names);
}

/** A callback that does something of the test's with every path. */
class Visit {
public:
    explicit Visit(std::function<bool(const String&)> action)
        : _action(std::move(action))
    {}
    void operator()(const String& path, Extensions extensions = {nullptr})
    {
        orvi::scanFiles({this, &Visit::take}, path, extensions.data(), true);
    }

private:
    bool take(const String& path) { return _action(path); }

    std::function<bool(const String&)> _action;
};

String readText(const String& path)
{
    const Handle_T<File> file = File::createInstance();
    if (!file->open(path, File::readOnly, 0))
        return L"(does not open)";
    char bytes[256] = {};
    file->read(bytes, sizeof bytes - 1);
    return orvi::StringHelper::utf8ToWide(bytes);
}

/** Directories one in the other, deeper than a path that the system takes; and their end, level by level. */
class DeepTree {
public:
    static constexpr int levels = 3000;

    explicit DeepTree(const TempDirectory& place)
        : _top(place / "d")
        , _spare(place / "e")
    {
        String path;
        for (int i = 0; i < levels; ++i)
            path += L"d/";
        orvi::createDirectory(path, inside(place));
        _bottom = inside(place) + path;
    }
    ~DeepTree()
    {
        std::error_code ignored;
        fs::path top = _top, other = _spare;
        while (fs::exists(top / "d", ignored)) {
            fs::rename(top / "d", other, ignored);
            fs::remove_all(top, ignored);
            std::swap(top, other);
        }
        fs::remove_all(top, ignored);
    }
    DeepTree(const DeepTree&) = delete;
    DeepTree& operator=(const DeepTree&) = delete;

    const String& bottom() const { return _bottom; }

private:
    fs::path _top;
    fs::path _spare;
    String _bottom;
};

/** Puts the current directory back. */
class KeepDirectory {
public:
    KeepDirectory() = default;
    ~KeepDirectory() { fs::current_path(_before); }
    KeepDirectory(const KeepDirectory&) = delete;
    KeepDirectory& operator=(const KeepDirectory&) = delete;

private:
    fs::path _before = fs::current_path();
};

} // namespace

TEST_CASE("the current directory is told and set")
{
    const KeepDirectory keep;
    const TempDirectory place;
    const RecordingLog log;
    CHECK(orvi::setCurrentDirectory(place.name("")));
    CHECK(orvi::getCurrentDirectory() == orvi::StringHelper::utf8ToWide(fs::canonical(place.path()).c_str()));
    CHECK(log.lines().empty());

    fs::create_directory(place / "gone");
    CHECK(orvi::setCurrentDirectory(L"gone"));
    fs::remove(place / "gone");
    CHECK(orvi::getCurrentDirectory().isEmpty());
    CHECK_FALSE(orvi::setCurrentDirectory(L"none"));
    CHECK_FALSE(orvi::setCurrentDirectory(L""));
    CHECK_FALSE(orvi::setCurrentDirectory(nullptr));
    CHECK(log.errors() == Texts{L"GetCurrentDirectory : No such file or directory",
                                L"SetCurrentDirectory : No such file or directory",
                                L"SetCurrentDirectory : No such file or directory",
                                L"SetCurrentDirectory : No such file or directory"});
}

TEST_CASE("a chain of directories is made below a base")
{
    const struct {
        const char* what;
        const wchar_t* path;
        const wchar_t* base; // in the current directory
        std::vector<const char*> made;
        const char* missing;
    } rows[] = {
        {"three levels", L"a/b/c", L"x/", {"x/a/b/c"}, "x/a/b/c/d"},
        {"a slash at the end", L"a/b/", L"x/", {"x/a/b"}, "x/a/b/c"},
        {"doubled slashes", L"a//b", L"x/", {"x/a/b"}, "x/b"},
        {"no base", L"a/b", L"", {"a/b"}, "x/a"},
        {"a backslash is a character", L"a\\b", L"", {"a\\b"}, "a"},
        {"an empty path does not even make the base", L"", L"y/", {}, "y"},
        {"a base that is missing", L"a/b", L"y/", {}, "y"},
        {"a file on the way", L"file/a", L"", {"file"}, "file/a"},
        {"a base is joined as it stands", L"a", L"x/p", {"x/pa"}, "x/p"},
    };
    const KeepDirectory keep;
    const RecordingLog log;
    for (const auto& row : rows) {
        CAPTURE(row.what);
        const TempDirectory place;
        fs::current_path(place.path());
        fs::create_directory("x");
        writeWhole("file");
        for (int round = 0; round < 2; ++round) {
            orvi::createDirectory(row.path, row.base);
            for (const char* made : row.made)
                CHECK(fs::exists(made));
            CHECK_FALSE(fs::exists(row.missing));
        }
    }
    CHECK(log.lines().empty());

    const TempDirectory place;
    const mode_t before = umask(027);
    orvi::createDirectory(inside(place) + L"a/b", L""); // an absolute path
    umask(before);
    for (const char* made : {"a", "a/b"})
        CHECK(fs::status(place / made).permissions() == fs::perms(0750));
}

TEST_CASE("subdirectories are listed by name, without hidden ones and without descending")
{
    const TempDirectory place;
    Texts names = {L"before"};
    for (const char* name : {"files", "a/inner", "b", ".hidden"})
        fs::create_directories(place / name);
    writeWhole(place / "files/file");
    fs::create_symlink("a", place / "link");
    fs::create_symlink("files/file", place / "file-link");
    fs::create_symlink("nowhere", place / "dangling");
    orvi::scanDirectories(inside(place), names);
    CHECK(names.front() == L"before");
    CHECK(sorted(names) == Texts{L"a", L"b", L"before", L"files", L"link"});

    const Texts all = names;
    orvi::scanDirectories(inside(place, "files"), names);
    orvi::scanDirectories(inside(place, "none"), names);
    orvi::scanDirectories(inside(place, "files/file"), names);
    CHECK(names == all);

    const KeepDirectory keep;
    fs::current_path(place / "a");
    Texts here;
    orvi::scanDirectories(L"", here);
    CHECK(here == Texts{L"inner"});
}

TEST_CASE("files are picked by what stands behind their last dot, in any case")
{
    const TempDirectory place;
    for (const char* name : {"a.txt", "B.TXT", "txt", "a.txt.bak", "c.", "d.png", ".txt", ".e.txt"})
        writeWhole(place / name);
    fs::create_directory(place / "directory.txt");
    const struct {
        const char* what;
        Extensions extensions;
        Texts found;
    } rows[] = {
        {"one", {L"txt", nullptr}, {L"B.TXT", L"a.txt"}},
        {"in upper case", {L"TXT", nullptr}, {L"B.TXT", L"a.txt"}},
        {"two", {L"png", L"bak", nullptr}, {L"a.txt.bak", L"d.png"}},
        {"the same twice", {L"png", L"Png", nullptr}, {L"d.png", L"d.png"}},
        {"with a dot in it", {L"txt.bak", nullptr}, {}},
        {"an empty one", {L"", nullptr}, {L"c."}},
        {"no entry", {nullptr}, {L"B.TXT", L"a.txt", L"a.txt.bak", L"c.", L"d.png", L"txt"}},
        {"no array", {}, {L"B.TXT", L"a.txt", L"a.txt.bak", L"c.", L"d.png", L"txt"}},
    };
    for (const auto& row : rows) {
        CAPTURE(row.what);
        CHECK(scanSorted(inside(place), row.extensions) == row.found);
    }
}

TEST_CASE("a directory's own files come first, and hidden things not at all")
{
    const TempDirectory place;
    const RecordingLog log;
    for (const char* name : {"p/q", "r", ".hidden/s"})
        fs::create_directories(place / name);
    for (const char* name : {"top", "p/one", "p/q/two", "r/three", ".hidden/four", ".hidden/s/five", ".six"})
        writeWhole(place / name);
    mkfifo((place / "pipe").c_str(), 0666);

    CHECK(scanSorted(inside(place), {}, false) == Texts{L"top"});
    CHECK(scanSorted(inside(place)) == Texts{L"p/one", L"p/q/two", L"r/three", L"top"});
    CHECK(scanSorted(inside(place, ".hidden")) == Texts{L"four", L"s/five"}); // it is named itself
    const Texts order = scan(inside(place));
    CHECK(order.front() == place.name("top"));
    const auto one = std::find(order.begin(), order.end(), place.name("p/one"));
    REQUIRE(one != order.end());
    CHECK(one[1] == place.name("p/q/two"));

    CHECK(scan(inside(place, "none")).empty());
    CHECK(scan(inside(place, "top")).empty());
    CHECK(log.lines().empty());

    const KeepDirectory keep;
    fs::current_path(place / "p");
    CHECK(scan(L"") == Texts{L"one", L"q/two"});
}

TEST_CASE("links are what they lead to, and circles of them come to an end")
{
    const TempDirectory place;
    fs::create_directories(place / "tree/sub");
    fs::create_directories(place / "elsewhere/deeper");
    writeWhole(place / "tree/sub/file");
    writeWhole(place / "elsewhere/other");
    writeWhole(place / "elsewhere/deeper/last");
    fs::create_symlink("sub/file", place / "tree/to-file");
    fs::create_symlink("nowhere", place / "tree/dangling");
    fs::create_symlink("itself", place / "tree/itself");
    fs::create_symlink("..", place / "tree/sub/up");
    fs::create_symlink(".", place / "tree/sub/here");
    fs::create_symlink("../elsewhere", place / "tree/to-elsewhere");
    fs::create_symlink("../elsewhere", place / "tree/to-elsewhere-again");
    fs::create_symlink("../elsewhere/deeper", place / "tree/to-deeper");
    fs::create_symlink("../tree", place / "elsewhere/back");
    for (char c = 'a'; c < 'k'; ++c) // whatever the order of the listing, most come before or most behind
        fs::create_symlink("sub", place / "tree" / std::string(1, c));

    CHECK(scanSorted(inside(place, "tree")) ==
          Texts{L"sub/file", L"to-deeper/last", L"to-elsewhere/other", L"to-file"});
}

TEST_CASE("a callback that has enough ends its directory, and what lies beside goes on")
{
    const TempDirectory place;
    for (const char* name : {"a/inner", "b/inner"})
        fs::create_directories(place / name);
    for (const char* name : {"a/1", "a/2", "a/inner/3", "b/1", "b/2", "b/inner/3"})
        writeWhole(place / name);
    Texts offered;
    Visit refuse([&](const String& path) {
        offered.push_back(path);
        return false;
    });
    refuse(inside(place));
    REQUIRE(offered.size() == 2); // one of each, and nothing below them
    CHECK(offered[0].getSubString(0, offered[0].getLength() - 1) !=
          offered[1].getSubString(0, offered[1].getLength() - 1));
    for (const String& path : offered)
        CHECK(path.find(L"inner") < 0);

    offered.clear();
    writeWhole(place / "top.x");
    refuse(inside(place));
    CHECK(offered == Texts{place.name("top.x")});
    offered.clear();
    refuse(inside(place), {L"x", L"X", nullptr}); // between two matches of one file
    CHECK(offered.size() == 1);
}

TEST_CASE("a callback may remove what the scan has before it")
{
    const TempDirectory place;
    const RecordingLog log;
    for (const char* name : {"a/inner", "b"})
        fs::create_directories(place / name);
    for (const char* name : {"first", "a/1", "a/inner/2", "b/3"})
        writeWhole(place / name);
    int calls = 0;
    Visit([&](const String&) {
        ++calls;
        for (const char* name : {"first", "a", "b"})
            fs::remove_all(place / name);
        return true;
    })(inside(place));
    CHECK(calls == 1);
    CHECK(log.lines().empty());
}

TEST_CASE("a directory that may not be read is passed over")
{
    const TempDirectory place;
    fs::permissions(place.path(), fs::perms(0755));
    for (const char* name : {"closed", "open"}) {
        fs::create_directory(place / name);
        writeWhole(place / name / "file");
    }
    fs::permissions(place / "closed", fs::perms::none);
    const String path = inside(place);
    const pid_t child = fork();
    REQUIRE(child >= 0);
    if (child == 0) {
        constexpr uid_t nobody = 65534;
        if (geteuid() == 0 && setuid(nobody) != 0) // root may read everything
            _exit(2);
        std::list<String> files;
        orvi::scanFiles(files, path, nullptr, true);
        _exit(files == std::list<String>{path + L"open/file"} ? 0 : 1);
    }
    int status = -1;
    REQUIRE(waitpid(child, &status, 0) == child);
    CHECK(status == 0);
    fs::permissions(place / "closed", fs::perms::owner_all);
}

TEST_CASE("names that are no UTF-8 lead back to their files")
{
    const TempDirectory place;
    const RecordingLog log;
    std::vector<std::string> names = {
        "caf\xE9",              // another code page
        "\xC3",                 // cut behind the first byte
        "\xE2\x82",             // behind the second
        "\xF0\x9F\x98",         // behind the third
        "\xF0\x9F\x98\x80\x98", // a character of four bytes, and one too many
        "\xC0\xAF",             // overlong
        "\xED\xA0\x80",         // a surrogate
        "\xF4\x90\x80\x80",     // beyond Unicode
        "\xEF\xBF\xBD",         // the replacement character itself
        "\xEF\xBF",
    };
    for (int byte = 0x80; byte <= 0xFF; ++byte)
        names.push_back("byte-" + std::string(1, static_cast<char>(byte)) + "-");
    for (const std::string& name : names) {
        fs::create_directory(place.path() / name);
        writeWhole(place.path() / name / name, std::to_string(&name - names.data()));
    }
    const Texts found = scan(inside(place));
    CHECK(found.size() == names.size());
    Texts contents;
    for (const String& path : found) {
        contents.push_back(readText(path));
        CHECK(orvi::isFileExists(path));
    }
    Texts expected;
    for (std::size_t i = 0; i < names.size(); ++i)
        expected.push_back(orvi::convertToString(static_cast<int>(i)));
    CHECK(sorted(contents) == sorted(expected));

    Texts directories;
    orvi::scanDirectories(inside(place), directories);
    CHECK(directories.size() == names.size());
    for (const String& name : directories) {
        CHECK(scan(inside(place) + name + L"/").size() == 1);
        orvi::createDirectory(name, inside(place) + name + L"/"); // there is the file of this name
        orvi::createDirectory(name + L"+", inside(place));
    }
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
    REQUIRE(orvi::setCurrentDirectory(inside(place) + L"\xDCFF\xDCFE"));
    const String here = orvi::getCurrentDirectory();
    CHECK(here.find(L"/\xDCFF\xDCFE") > 0);

    const Handle_T<orvi::FileMutex> mutex = orvi::FileMutex::createInstance(here + L"/lock\xDC80");
    CHECK(mutex->lock(0));
    CHECK(fs::exists(odd / "lock\x80"));
    mutex->unlock();
    CHECK_FALSE(fs::exists(odd / "lock\x80"));

    setenv("TMPDIR", odd.c_str(), 1);
    const String name = orvi::TempFile::getTempFileName();
    unsetenv("TMPDIR");
    CHECK(orvi::isFileExists(name));
    CHECK(scan(here + L"/") == Texts{name});

    // What is no byte, and so no path of anybody's, stays the replacement character.
    const Handle_T<File> file = File::createInstance();
    CHECK(file->open(L"\xD800\xDC7F\xDD00", File::writeOnly | File::create, 3));
    CHECK(fs::exists(odd / "\xF0\x90\x81\xBF\xEF\xBF\xBD"));
}

TEST_CASE("a tree that is deeper than any path is made, scanned and read")
{
    const TempDirectory place;
    const DeepTree tree(place);
    const RecordingLog log;
    const String path = tree.bottom() + L"file";
    const Handle_T<File> file = File::createInstance();
    REQUIRE(file->open(path, File::writeOnly | File::create, 3));
    CHECK(file->write("deep", 4) == 4);
    file->close();
    CHECK(scan(inside(place)) == Texts{path});
    CHECK(readText(path) == L"deep");
    int size = 0;
    orvi::Time created, modified;
    CHECK(orvi::getFileInfo(path, size, created, modified));
    CHECK(size == 4);
    Texts names;
    orvi::scanDirectories(tree.bottom().getSubString(0, tree.bottom().getLength() - 2), names);
    CHECK(names == Texts{L"d"});
    CHECK(log.lines().empty());

    // What is wrong on a long way is told like on a short one.
    const String lost = inside(place) + L"none/" + tree.bottom();
    CHECK_FALSE(file->open(lost, File::readOnly, 0));
    CHECK_FALSE(file->open(tree.bottom() + L"none", File::readOnly, 0));
    CHECK_FALSE(file->open(inside(place) + orvi::StringHelper::utf8ToWide(std::string(5000, 'x').c_str()),
                           File::readOnly, 0));
    const Texts errors = log.errors();
    REQUIRE(errors.size() == 3);
    CHECK(errors[0].find(L"ENOENT") > 0);
    CHECK(errors[1].find(L"ENOENT") > 0);
    CHECK(errors[2].find(L"ENAMETOOLONG") > 0);
}

TEST_CASE("a directory of 20,000 files is told in full")
{
    const TempDirectory place;
    constexpr int count = 20'000;
    Texts expected;
    for (int i = 0; i < count; ++i) {
        const std::string name = std::to_string(i) + ".dat";
        writeWhole(place / name.c_str());
        expected.push_back(orvi::StringHelper::utf8ToWide(name.c_str()));
    }
    CHECK((scanSorted(inside(place), {L"dat", nullptr}) == sorted(expected)));
}

TEST_CASE("the program knows where it lies")
{
    const String name = orvi::getAppName();
    const String path = orvi::getAppPath();
    REQUIRE(path.getLength() > 1);
    CHECK(path[path.getLength() - 1] == L'/');
    CHECK(name.find(path) == 0);
    CHECK(name.getSubString(path.getLength(), -1).find(L'/') < 0);
    CHECK(orvi::isFileExists(name));

    // The same in a copy of this program that lies at an odd place and removes itself.
    constexpr char mark[] = "ORVI_TEST_PROGRAM_COPY";
    if (const char* own = std::getenv(mark)) {
        CHECK(name.find(L"/\xDCFC\xDCFF/copy (deleted)") > 0);
        fs::remove(own);
        CHECK_FALSE(orvi::isFileExists(name));
        CHECK(orvi::getAppName() == name);
        return;
    }
    const TempDirectory place;
    const fs::path directory = place.path() / "\xFC\xFF";
    fs::create_directory(directory);
    const fs::path copy = directory / "copy (deleted)";
    fs::copy_file("/proc/self/exe", copy);
    const pid_t child = fork();
    REQUIRE(child >= 0);
    if (child == 0) {
        setenv(mark, copy.c_str(), 1);
        execl(copy.c_str(), copy.c_str(), "-tc=the program knows where it lies", nullptr);
        _exit(127);
    }
    int status = -1;
    REQUIRE(waitpid(child, &status, 0) == child);
    CHECK(status == 0);
}
