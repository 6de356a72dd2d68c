#include "SystemCallSweep.h"

#include "ByteIO.h"
#include "RecordingLog.h"
#include "platform/hosting/ServiceLink.h"
#include "platform/hosting/ServiceManager.h"
#include "platform/posix/hosting/ServicePlaces.h"

#include <orvi/core/Core.h>

#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <iterator>
#include <string>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

using namespace orvi;
namespace fs = std::filesystem;

namespace {

String nameOf(const fs::path& path) { return StringHelper::utf8ToWide(path.c_str()); }

std::string contentOf(const fs::path& path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

std::string patternOf(std::size_t size)
{
    std::string text(size, ' ');
    for (std::size_t i = 0; i < size; ++i)
        text[i] = static_cast<char>('a' + i * 31 / 7 % 26);
    return text;
}

const std::string g_muchText = patternOf((10 << 20) + 30'000); // once, for all children

/** Whether nothing stands there but these. */
bool holdsOnly(const fs::path& place, std::initializer_list<const char*> names)
{
    std::size_t found = 0;
    for (const char* name : names)
        found += fs::exists(fs::symlink_status(place / name)) ? 1 : 0;
    return static_cast<std::size_t>(std::distance(fs::directory_iterator(place), {})) == found;
}

Outcome judged(bool isTrue, bool isDone)
{
    return !isTrue ? Outcome::Wrong : isDone ? Outcome::Done : Outcome::Failed;
}

Outcome files(const fs::path& place)
{
    const std::string head = patternOf(20'000), tail = patternOf(5'000);
    const String name = nameOf(place / "file");
    const Handle_T<File> file = File::createInstance();
    const RecordingLog log;
    bool isStored = false, isRead = false;
    std::string found(30'000, ' ');
    {
        const Armed armed;
        isStored = file->open(name, File::readWrite | File::create | File::truncate,
                              File::permitRead | File::permitWrite);
        for (std::size_t at = 0; at < head.size(); at += 100)
            isStored = isStored && put(*file, head.substr(at, 100)) == 100;
        isStored = isStored && file->setPosition(0) == 0 && file->getArchiveSize() == 20'000;
        file->close();
        isStored =
            isStored && file->open(name, File::writeOnly | File::append, 0) && put(*file, tail) == 5'000;
        file->close();
        isStored = isStored && log.errors().empty(); // of the close
        isRead = file->open(name, File::readOnly, 0);
        found.resize(static_cast<std::size_t>(std::max(file->read(found.data(), 30'000), 0)));
        isRead = isRead && file->eof();
        file->close();
    }
    const std::string stored = contentOf(place / "file");
    const bool isTrue = (!isStored || stored == head + tail) && (!isRead || found == stored);
    return judged(isTrue && stored.starts_with(found), isStored && isRead);
}

Outcome temporaryFiles(const fs::path& place)
{
    bool isDone = false;
    {
        const Armed armed;
        const Handle_T<TempFile> file = TempFile::createTempFile();
        isDone = !file.isNull() && put(*file, "x") == 1 && file->setPosition(0) == 0 && take(*file, 1) == "x";
    }
    return judged(holdsOnly(place.parent_path(), {"1", "2"}) || hasFailed("remove"), isDone);
}

Outcome streams(const fs::path&)
{
    const std::string& text = g_muchText;
    const auto size = static_cast<int>(text.size());
    std::string found(text.size(), ' ');
    int written = 0, read = 0;
    {
        const Armed armed;
        const Handle_T<MemoryStream> stream = MemoryStream::createInstance();
        written = stream->write(text.data(), size);
        for (int count = 1; count > 0; read += std::max(count, 0))
            count = stream->read(found.data() + read, 3'000);
    }
    found.resize(static_cast<std::size_t>(read));
    return judged(text.starts_with(found), written == size && read == size);
}

Outcome mutexes(const fs::path& place)
{
    const String name = nameOf(place / "mutex");
    bool first = false, second = false, again = false;
    {
        const Armed armed;
        const auto one = FileMutex::createInstance(name), other = FileMutex::createInstance(name);
        first = one->lock(0);
        second = other->lock(0);
        one->unlock();
        other->unlock();
        again = other->lock(0);
    }
    const bool mayStay = hasFailed("unlink") || hasFailed("fstat") || hasFailed("stat") || hasFailed("flock");
    const bool isLeft = fs::exists(place / "mutex") && !mayStay;
    return judged(!(first && second) && !isLeft, first && again);
}

Outcome directories(const fs::path& place)
{
    const String root = nameOf(place) + L"/";
    std::list<String> found;
    {
        const Armed armed;
        createDirectory(L"a/b", root);
    }
    const bool isMade = fs::exists(place / "a/b");
    fs::create_directories(place / "a/b");
    for (const char* name : {"a/b/one", "a/two", "three"})
        std::ofstream(place / name) << name;
    try {
        const Armed armed;
        scanFiles(found, root, nullptr, true);
    } catch (const std::bad_alloc&) { // ENOMEM
        return Outcome::Failed;
    }
    const bool areThere = std::ranges::all_of(found, isFileExists); // what does not open is passed over
    return judged(areThere && found.size() <= 3, isMade && found.size() == 3);
}

/** With a document there, or a link to one, or none. */
template <bool isThere>
Outcome saves(const fs::path& place)
{
    const fs::path target = place / "target";
    fs::create_symlink("target", place / "link");
    if (isThere) {
        std::ofstream(target) << "old";
        ::chmod(target.c_str(), 0604);
        if (::chown(target.c_str(), 1, 1) != 0 && ::geteuid() == 0) // nobody else may
            return Outcome::Wrong;
    }
    bool isSaved = false;
    {
        const Armed armed;
        isSaved = Json::save(L"new", nameOf(place / "link"), false);
    }
    struct stat status {};
    ::stat(target.c_str(), &status);
    const bool isKept = !isThere || (status.st_mode & 0777) == 0604;
    const bool isWhole = contentOf(target) == (isSaved ? "\"new\"" : isThere ? "old" : "");
    return judged(isWhole && isKept && holdsOnly(place, {"target", "link"}), isSaved);
}

Outcome loads(const fs::path& place)
{
    std::ofstream(place / "conf") << "[a]\n# " << patternOf(9'000) << "\nx = 5\n";
    std::ofstream(place / "json") << "[1, 2]";
    const String conf = nameOf(place / "conf");
    const int size = getFileSize(conf);
    MD5Checksum expected, checksum;
    calcFileMd5(conf, expected);
    const RecordingLog log;
    String text;
    JsonValue value;
    int told = 0, same = 0;
    Time created, modified;
    bool isKnown = false, isLoaded = false, isDigested = false;
    {
        const Armed armed;
        told = getFileSize(conf);
        isKnown = getFileInfo(conf, same, created, modified) && isFileExists(conf) && told == size;
        text = getConfigString(conf, L"a", L"x", L"none");
        isLoaded = Json::load(value, L"memory://<<file://" + nameOf(place / "json"));
        isDigested = calcFileMd5(conf, checksum);
    }
    const bool isRead = text == L"5";
    const bool isTrue = (isRead || !log.errors().empty()) && (told == size || told == -1) &&
                        (same == size || same == -1) &&
                        (!isLoaded || Json::convertToString(value, false) == L"[1,2]") &&
                        (!isDigested || checksum == expected);
    return judged(isTrue, isRead && isKnown && isLoaded && isDigested);
}

Outcome services(const fs::path& place)
{
    using platform::ServiceManager;
    auto& places = platform::servicePlaces();
    places.unitDirectories = {(place / "own").string()};
    places.runningMark = place;
    places.command = "/bin/echo";
    fs::create_directory(place / "own");
    const platform::ServiceEntry entry{"greeter", "Greeter", {"/bin/true", "word"}, "", true};
    const auto unit = [&] { return contentOf(place / "own/greeter.service"); };
    bool isCreated = false, isRemoved = false;
    String_T<char> line;
    {
        const Armed armed;
        isCreated =
            ServiceManager::tryAccess() == ServiceManager::Access::Granted && ServiceManager::create(entry);
    }
    const bool isWhole = unit().find("ExecStart=:/bin/true word\n") != std::string::npos;
    if (isCreated ? !isWhole : !unit().empty() && !hasFailed("unlink"))
        return Outcome::Wrong;
    if (!isCreated)
        return judged(hasFailed("unlink") || holdsOnly(place / "own", {"multi-user.target.wants"}), false);
    {
        const Armed armed;
        ServiceManager::queryState(entry.name);
        line = ServiceManager::commandLineOf(entry.name);
        isRemoved = ServiceManager::remove(entry.name);
    }
    return judged((!isRemoved || unit().empty()) && (line.isEmpty() || line == "/bin/true word"),
                  isRemoved && !line.isEmpty());
}

Outcome links(const fs::path& place)
{
    const std::string name = place.parent_path() / "door"; // the library knows the first one's name
    fs::remove(name);
    sockaddr_un address{AF_UNIX, {}};
    name.copy(address.sun_path, sizeof address.sun_path - 1);
    const int door = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (bind(door, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0)
        return Outcome::Wrong;
    setenv("NOTIFY_SOCKET", name.c_str(), 1);
    bool isReported = false;
    {
        const Armed armed;
        isReported = platform::ServiceLink::report({platform::ServiceState::Running, 0, 0, 0, 0});
    }
    char message[100];
    const bool isHeard = recv(door, message, sizeof message, MSG_DONTWAIT) > 0;
    close(door);
    return judged(!isReported || isHeard, isReported);
}

Outcome consoles(const fs::path& place)
{
    const std::string text = patternOf(40'000);
    const int before = dup(STDOUT_FILENO);
    const int file = open((place / "output").c_str(), O_RDWR | O_CREAT, 0600);
    dup2(file, STDOUT_FILENO);
    {
        const Armed armed;
        ConsoleScreenBufferInfo info;
        Console::getScreenBufferInfo(info);
        Console::setTextAttribute(14);
        Console::output(L"%S", text.c_str());
        Console::setTitle(L"title");
    }
    dup2(before, STDOUT_FILENO);
    close(before);
    close(file);
    const std::string found = contentOf(place / "output"); // what cannot be written is dropped
    return judged(text.starts_with(found), found == text);
}

Outcome uuids(const fs::path&)
{
    const Armed armed;
    const Uuid one = Uuid::create(), other = Uuid::create();
    return judged(uuid_compare(one, other) != 0, true);
}

Outcome waits(const fs::path&)
{
    class Waiting final : public System {};
    static int calls;
    calls = 0;
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM, 0, ends) != 0)
        return Outcome::Wrong;
    bool isWatched = false;
    {
        const Armed armed;
        const Handle_T<System> system = new Waiting;
        const bool hasBegun = system->load() && system->begin();
        const auto watch = Watch::createInstance(
            ends[0], Watch::WRITABLE, +[](unsigned int) { ++calls; });
        isWatched = hasBegun && watch->start(system);
        unsigned int ms = 0;
        for (int turn = 0; hasBegun && turn < 5; ++turn)
            system->turn(ms);
        system->shutdown();
        system->finish();
    }
    close(ends[0]);
    close(ends[1]);
    return judged((calls > 0) == isWatched, isWatched);
}

constexpr Scene all[] = {
    {"files", files},
    {"temporary files", temporaryFiles},
    {"mutexes", mutexes},
    {"directories", directories},
    {"save over a document", saves<true>},
    {"save a new document", saves<false>},
    {"loads", loads},
    {"services", services},
    {"service link", links},
    {"console", consoles},
    {"uuids", uuids},
    {"waits", waits},
    {"streams", streams}, // the last: it takes longest
};

} // namespace

std::span<const Scene> scenes() { return all; }
