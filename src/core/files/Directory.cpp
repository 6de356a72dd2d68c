#include <orvi/core/Directory.h>

#include <orvi/core/Encoding.h>
#include <orvi/core/Log.h>

#include "base/WideText.h"
#include "platform/files/DirectoryListing.h"
#include "platform/files/FilePath.h"

#include <filesystem>
#include <iterator>
#include <new>
#include <set>
#include <string>
#include <string_view>
#include <system_error>

namespace orvi {

namespace {

using platform::DirectoryListing;

void logFailure(const wchar_t* format, const std::error_code& error)
{
    Log::error(format, getErrorString(error.value()).getBuffer());
}

/** Behind the last one; the text itself without one. */
const wchar_t* behindLast(wchar_t ch, const wchar_t* text)
{
    const wchar_t* behind = text;
    for (const wchar_t* p = text; *p != 0; ++p) {
        if (*p == ch)
            behind = p + 1;
    }
    return behind;
}

/** All of it as one text. Throws std::bad_alloc when that cannot be made: a part of it is another path. */
String join(const String& directory, const String& name, const wchar_t* end = L"")
{
    String whole = directory + name + end;
    if (whole.getLength() < directory.getLength() + name.getLength() + static_cast<int>(text::length(end)))
        throw std::bad_alloc();
    return whole;
}

/** One scan under way. Subdirectories wait in a list of their own: how deep they nest is not ours to limit,
    and the stack would. */
class FileScan {
public:
    FileScan(const CallbackHandler<bool, const String&>& callback, const wchar_t** extensions, bool recursive)
        : _callback(callback)
        , _extensions(extensions != nullptr && *extensions != nullptr ? extensions : nullptr)
        , _recursive(recursive)
    {}

    void run(const String& path)
    {
        scanTree(path);
        // Only now, and by their names: so nothing depends on the order in which the system lists them.
        while (!_links.empty())
            scanTree(join(_links.extract(_links.begin()).value(), String(), L"/"));
    }

private:
    /** Looks through what lies below `path` in fact, and notes the links to other places. */
    void scanTree(const String& path)
    {
        std::vector<String> waiting = {path}; // the next one last
        while (!waiting.empty()) {
            const String directory = std::move(waiting.back());
            waiting.pop_back();
            scanDirectory(directory, waiting);
        }
    }

    void scanDirectory(const String& path, std::vector<String>& waiting)
    {
        DirectoryListing listing(path);
        if (!listing.isOpen() || !_visited.insert(listing.identity()).second)
            return;
        std::vector<String> noted;
        std::set<String> links;
        for (DirectoryListing::Entry entry; listing.next(entry);) {
            if (!entry.isDirectory) {
                if (!offer(path, entry.name))
                    return;
            } else if (_recursive && entry.isLink) {
                links.insert(join(path, entry.name));
            } else if (_recursive) {
                noted.push_back(join(path, entry.name, L"/"));
            }
        }
        waiting.insert(waiting.end(), std::make_move_iterator(noted.rbegin()),
                       std::make_move_iterator(noted.rend()));
        _links.merge(links);
    }

    /** False when the callback has enough of this directory. */
    bool offer(const String& path, const String& name) const
    {
        if (_extensions == nullptr)
            return _callback(join(path, name));
        const wchar_t* const extension = behindLast(L'.', name);
        if (extension == name.getBuffer()) // no dot: none stands in front, that file would be hidden
            return true;
        for (const wchar_t** wanted = _extensions; *wanted != nullptr; ++wanted) {
            if (text::compareNoCase(extension, *wanted) == 0 && !_callback(join(path, name)))
                return false;
        }
        return true;
    }

    const CallbackHandler<bool, const String&> _callback; // held, whatever it does to itself
    const wchar_t** _extensions;                          // null: all files
    bool _recursive;
    std::set<DirectoryListing::Identity> _visited;
    std::set<String> _links; // to directories, that wait; without the "/"
};

} // namespace

String getCurrentDirectory()
{
    std::error_code error;
    const std::filesystem::path directory = std::filesystem::current_path(error);
    if (!error)
        return platform::pathFromBytes(directory.c_str());
    logFailure(L"GetCurrentDirectory : %s", error);
    return String();
}

bool setCurrentDirectory(const wchar_t* path)
{
    std::error_code error;
    std::filesystem::current_path(platform::bytesFromPath(path).getBuffer(), error);
    if (error)
        logFailure(L"SetCurrentDirectory : %s", error);
    return !error;
}

void createDirectory(const String& path, const String& base)
{
    const int baseLength = base.getLength();
    const String whole = base + path;
    for (int slash = whole.find(L'/', baseLength); slash >= 0; slash = whole.find(L'/', slash + 1))
        platform::makeDirectory(whole.getSubString(0, slash));
    if (!path.isEmpty() && whole[whole.getLength() - 1] != L'/')
        platform::makeDirectory(whole);
}

void scanDirectories(const String& path, std::vector<String>& names)
{
    DirectoryListing listing(path);
    if (!listing.isOpen())
        return;
    for (DirectoryListing::Entry entry; listing.next(entry);) {
        if (entry.isDirectory)
            names.push_back(entry.name);
    }
}

void scanFiles(const CallbackHandler<bool, const String&>& callback, const String& path,
               const wchar_t** extensions, bool recursive)
{
    FileScan(callback, extensions, recursive).run(path);
}

void scanFiles(std::list<String>& files, const String& path, const wchar_t** extensions, bool recursive)
{
    ScanFiles target(files);
    scanFiles({&target, &ScanFiles::add}, path, extensions, recursive);
}

bool ScanFiles::add(const String& path)
{
    _files.push_back(path);
    return true;
}

String getAppName()
{
    constexpr std::string_view mark = " (deleted)"; // when another file has taken the program's place
    std::error_code error;
    std::string name = std::filesystem::read_symlink("/proc/self/exe", error).string();
    if (name.ends_with(mark) && !std::filesystem::exists(name, error))
        name.resize(name.size() - mark.size());
    return platform::pathFromBytes(name.c_str());
}

String getAppPath()
{
    const String name = getAppName();
    const auto length = static_cast<int>(behindLast(L'/', name) - name.getBuffer());
    return length > 0 ? name.getSubString(0, length) : name;
}

} // namespace orvi
