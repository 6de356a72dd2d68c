#include "platform/hosting/ServiceManager.h"

#include "CommandOutput.h"
#include "ServicePlaces.h"
#include "ServiceUnit.h"
#include "platform/posix/base/DescriptorNumber.h"

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

namespace orvi::platform {

namespace {

constexpr std::size_t longestUnit = 65'536; // read from a file of others
constexpr char wantsDirectory[] = "/multi-user.target.wants";

const std::string& ownDirectory() { return servicePlaces().unitDirectories.front(); }

std::string ownUnit(const std::string& fileName) { return ownDirectory() + "/" + fileName; }

/** What has systemd start the unit with the system. */
std::string startLink(const std::string& fileName)
{
    return ownDirectory() + wantsDirectory + "/" + fileName;
}

/** Also a link to nowhere: that is how systemd marks a unit that nobody shall start. */
bool isPresent(const std::string& path)
{
    struct stat status;
    return ::lstat(path.c_str(), &status) == 0;
}

/** The path of the unit file that counts, empty when there is none. */
std::string findUnit(const String_T<char>& serviceName)
{
    const auto fileName = unitFileName(serviceName);
    if (!fileName)
        return {};
    for (const std::string& directory : servicePlaces().unitDirectories) {
        std::string path = directory + "/" + *fileName;
        if (isPresent(path))
            return path;
    }
    return {};
}

std::string readFile(const std::string& path)
{
    std::string text(longestUnit, '\0');
    std::size_t size = 0;
    // Without O_NONBLOCK a pipe under that name would be waited for.
    const int file = aboveStandardStreams(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (file >= 0) {
        ssize_t count = 0;
        do {
            count = ::read(file, text.data() + size, text.size() - size);
            size += count > 0 ? static_cast<std::size_t>(count) : 0;
        } while (count > 0 || (count < 0 && errno == EINTR));
        if (count < 0)
            size = 0; // a piece of a unit is none
        ::close(file);
    }
    text.resize(size);
    return text;
}

bool writeAll(int file, std::string_view text)
{
    while (!text.empty()) {
        const ssize_t count = ::write(file, text.data(), text.size());
        if (count >= 0)
            text.remove_prefix(static_cast<std::size_t>(count));
        else if (errno != EINTR)
            return false;
    }
    return true;
}

/** A name that exists is on the disk only with its directory. */
void syncDirectory(const std::string& path)
{
    const int directory = aboveStandardStreams(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (directory < 0)
        return;
    ::fsync(directory);
    ::close(directory);
}

/** Writes a file that was not there before, at once as a whole. */
bool writeNewFile(const std::string& path, const std::string& text)
{
    std::string draft = ownDirectory() + "/.orvi-XXXXXX";
    const int file = aboveStandardStreams(::mkostemp(draft.data(), O_CLOEXEC));
    if (file < 0) {
        if (draft.back() != 'X') // the file is there, but not the number that it was to have
            ::unlink(draft.c_str());
        return false;
    }
    const bool written = writeAll(file, text) && ::fchmod(file, 0644) == 0 && ::fsync(file) == 0;
    const bool closed = ::close(file) == 0;
    // link, unlike rename, fails where the name is taken.
    const bool named = written && closed && ::link(draft.c_str(), path.c_str()) == 0;
    ::unlink(draft.c_str());
    return named;
}

bool makeStartLink(const std::string& fileName)
{
    const std::string link = startLink(fileName);
    const std::string target = "../" + fileName;
    if (::mkdir((ownDirectory() + wantsDirectory).c_str(), 0755) != 0 && errno != EEXIST)
        return false;
    if (::symlink(target.c_str(), link.c_str()) == 0)
        return true;
    // One that a unit of that name has left behind: systemd goes by the link's name alone.
    struct stat status;
    return errno == EEXIST && ::lstat(link.c_str(), &status) == 0 && S_ISLNK(status.st_mode);
}

bool isSystemdRunning()
{
    struct stat status;
    return ::stat(servicePlaces().runningMark.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

std::optional<std::string> callSystemctl(std::vector<std::string> words)
{
    words.insert(words.begin(), {servicePlaces().command, "--no-ask-password"});
    return commandOutput(words, servicePlaces().commandLimitMs);
}

/** Has systemd read its units anew. Where it does not run, it will when it starts. */
bool reloadSystemd() { return !isSystemdRunning() || callSystemctl({"daemon-reload"}).has_value(); }

void removeFiles(const std::string& fileName)
{
    ::unlink(startLink(fileName).c_str());
    ::unlink(ownUnit(fileName).c_str());
    syncDirectory(ownDirectory());
}

ServiceState stateOf(std::string_view activeState)
{
    const struct {
        std::string_view word;
        ServiceState state;
    } words[] = {
        {"active\n", ServiceState::Running},          {"reloading\n", ServiceState::Running},
        {"activating\n", ServiceState::StartPending}, {"deactivating\n", ServiceState::StopPending},
        {"inactive\n", ServiceState::Stopped},        {"failed\n", ServiceState::Stopped},
    };
    for (const auto& row : words) {
        if (row.word == activeState)
            return row.state;
    }
    return ServiceState::Unknown;
}

} // namespace

ServicePlaces& servicePlaces()
{
    static ServicePlaces places;
    return places;
}

ServiceManager::Access ServiceManager::tryAccess()
{
    if (::faccessat(AT_FDCWD, ownDirectory().c_str(), W_OK | X_OK, AT_EACCESS) == 0)
        return Access::Granted;
    return errno == EACCES || errno == EPERM || errno == EROFS ? Access::Denied : Access::Unavailable;
}

bool ServiceManager::isAdministrator() { return ::geteuid() == 0; }

bool ServiceManager::exists(const String_T<char>& name) { return !findUnit(name).empty(); }

String_T<char> ServiceManager::commandLineOf(const String_T<char>& name)
{
    return commandLineIn(readFile(findUnit(name))).c_str();
}

ServiceState ServiceManager::queryState(const String_T<char>& name)
{
    if (!isSystemdRunning())
        return ServiceState::Stopped;
    const auto fileName = unitFileName(name);
    if (!fileName)
        return ServiceState::Unknown;
    const auto output = callSystemctl({"show", "--property=ActiveState", "--value", "--", *fileName});
    return output ? stateOf(*output) : ServiceState::Unknown;
}

bool ServiceManager::create(const ServiceEntry& entry)
{
    const auto fileName = unitFileName(entry.name);
    const auto text = unitText(entry);
    if (!fileName || !text || exists(entry.name) || !writeNewFile(ownUnit(*fileName), *text))
        return false;
    if ((!entry.automatic || makeStartLink(*fileName)) && reloadSystemd()) {
        syncDirectory(ownDirectory());
        return true;
    }
    removeFiles(*fileName);
    return false;
}

bool ServiceManager::isRemovable(const String_T<char>& name)
{
    const auto fileName = unitFileName(name);
    return fileName && isPresent(ownUnit(*fileName));
}

bool ServiceManager::remove(const String_T<char>& name)
{
    const auto fileName = unitFileName(name);
    // The unit first: a link that leads nowhere does no harm, a unit that has lost its link might.
    if (!fileName || ::unlink(ownUnit(*fileName).c_str()) != 0)
        return false;
    removeFiles(*fileName);
    reloadSystemd(); // without success the next one, of whomever, does it
    return true;
}

} // namespace orvi::platform
