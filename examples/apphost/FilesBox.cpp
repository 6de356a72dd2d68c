#include "Apps.h"
#include "CommandBox.h"

#include <orvi/core/Base64.h>
#include <orvi/core/Buffer.h>
#include <orvi/core/Digest.h>
#include <orvi/core/Directory.h>
#include <orvi/core/Encoding.h>
#include <orvi/core/File.h>
#include <orvi/core/MemoryStream.h>
#include <orvi/core/Time.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <limits>

namespace apphost {

using orvi::AppBox;
using orvi::File;
using orvi::Handle_T;
using orvi::MemoryStream;
using orvi::String;

namespace {

constexpr int chunkBytes = 32 * 1024;
constexpr int base64LineBytes = 57; // 76 characters
constexpr int hexLineBytes = 16;
constexpr int startHexBytes = 256;
constexpr int mostShownBytes = 1024 * 1024;
constexpr int mostShownNames = 1000;

bool deleteFile(const String& path) { return std::remove(orvi::StringHelper::wideToUtf8(path)) == 0; }

/** Deletes a file that was begun, unless it is told that the file is complete. */
class BegunFile {
public:
    explicit BegunFile(const String& path)
        : _path(path)
    {}
    ~BegunFile()
    {
        if (!_complete)
            deleteFile(_path);
    }
    BegunFile(const BegunFile&) = delete;
    BegunFile& operator=(const BegunFile&) = delete;

    void complete() { _complete = true; }

private:
    String _path;
    bool _complete = false;
};

/** Looks into files and copies them. */
class FilesBox : public CommandBox {
public:
    FilesBox(const String& appName, const String& directory)
        : CommandBox(appName, directory,
                     {
                         {L"size", L"FILE", L"how large it is, and when it was changed", 1, 1,
                          method(this, &FilesBox::size)},
                         {L"md5", L"FILE", L"its MD5 digest", 1, 1, method(this, &FilesBox::md5)},
                         {L"base64", L"FILE", L"its bytes in Base64, up to 1 MiB", 1, 1,
                          method(this, &FilesBox::base64)},
                         {L"hex", L"FILE [BYTES]", L"its first bytes in hexadecimal", 1, 2,
                          method(this, &FilesBox::hex)},
                         {L"copy", L"FILE NEW-FILE", L"copy it; a file that exists stays", 2, 2,
                          method(this, &FilesBox::copy)},
                         {L"remove", L"FILE", L"delete it", 1, 1, method(this, &FilesBox::remove)},
                         {L"scan", L"DIRECTORY [EXTENSION...]", L"the files in it and below it", 1, anyNumber,
                          method(this, &FilesBox::scan)},
                         {L"dirs", L"DIRECTORY", L"its subdirectories", 1, 1, method(this, &FilesBox::dirs)},
                     })
    {}

private:
    /** Answers with names, up to a number of them. */
    class NameList {
    public:
        NameList(const Call& call, const FilesBox& box)
            : _call(call)
            , _box(box)
        {}

        /** False when the application is to end. */
        bool add(const String& name)
        {
            if (_box.isEnding())
                return false;
            if (_count++ < mostShownNames)
                _call.say(L"%s", name.getBuffer());
            return true;
        }

        bool finish() const
        {
            if (_box.isEnding())
                return _call.fail(L"given up: the application ends");
            if (_count > mostShownNames)
                _call.say(L"%d in all, of which %d are shown", _count, mostShownNames);
            else
                _call.say(L"%d in all", _count);
            return true;
        }

    private:
        const Call& _call;
        const FilesBox& _box;
        int _count = 0;
    };

    String resolve(const wchar_t* path) const
    {
        const String& directory = getParameters();
        return directory.isEmpty() || *path == L'/' ? String(path) : directory + L"/" + path;
    }

    /** Null when the file does not open; the client knows why. */
    Handle_T<File> openToRead(const Call& call, const wchar_t* path) const
    {
        Handle_T<File> file = File::createInstance();
        if (file->open(resolve(path), File::readOnly, 0))
            return file;
        call.fail(L"cannot open '%s': %s", path, File::getLastError());
        return {};
    }

    /** Hands the next `bytes` bytes of the file to `take`, a piece at a time; fewer at its end. False when
        reading fails, when `take` refuses a piece, or when the application is to end. */
    template <class Take>
    bool readPieces(const Call& call, File& file, int bytes, int pieceBytes, Take take) const
    {
        unsigned char piece[chunkBytes];
        for (int left = bytes; left > 0;) {
            if (isEnding())
                return call.fail(L"given up: the application ends");
            const int count = file.read(piece, std::min(left, pieceBytes));
            if (count < 0)
                return call.fail(L"cannot read on: %s", File::getLastError());
            if (count == 0)
                break;
            if (!take(piece, count))
                return false;
            left -= count;
        }
        return true;
    }

    /** The same for all that the file has; a failure when its end is not reached. */
    template <class Take>
    bool readAll(const Call& call, File& file, Take take) const
    {
        if (!readPieces(call, file, std::numeric_limits<int>::max(), chunkBytes, take))
            return false;
        return file.eof() || call.fail(L"it cannot be read up to an end");
    }

    /** With the "/" at its end. Empty when it is not there; the client knows. */
    String resolveDirectory(const Call& call) const
    {
        String directory = resolve(call[1]);
        if (!directory.isEmpty() && directory[directory.getLength() - 1] != L'/')
            directory += L"/";
        if (orvi::isFileExists(directory))
            return directory;
        call.fail(L"'%s' is no directory", call[1]);
        return {};
    }

    bool size(const Call& call)
    {
        int bytes = 0;
        orvi::Time created, changed;
        if (!orvi::getFileInfo(resolve(call[1]), bytes, created, changed))
            return call.fail(L"'%s' is not there, or larger than 2 GiB", call[1]);
        call.say(L"%d bytes, changed %s", bytes, changed.convertToString(true).getBuffer());
        return true;
    }

    bool md5(const Call& call)
    {
        const Handle_T<File> file = openToRead(call, call[1]);
        if (file.isNull())
            return false;
        orvi::MD5Context context;
        orvi::MD5Init(&context);
        const auto digest = [&context](const void* piece, int count) {
            orvi::MD5Update(&context, piece, static_cast<unsigned int>(count));
            return true;
        };
        if (!readAll(call, *file, digest))
            return false;
        orvi::MD5Checksum checksum;
        orvi::MD5Final(&checksum, &context);
        call.say(L"%s", checksum.convertToString().getBuffer());
        return true;
    }

    bool base64(const Call& call)
    {
        const Handle_T<File> file = openToRead(call, call[1]);
        if (file.isNull())
            return false;
        if (file->getArchiveSize() > mostShownBytes)
            return call.fail(L"'%s' is larger than %d bytes", call[1], mostShownBytes);
        const auto show = [&call](const void* piece, int count) {
            call.say(L"%s", orvi::base64_encode(piece, count).getBuffer());
            return true;
        };
        return readPieces(call, *file, mostShownBytes, base64LineBytes, show);
    }

    bool hex(const Call& call)
    {
        const auto bytes = call.arguments() == 2 ? parseNumber(call[2]) : startHexBytes;
        if (!bytes || *bytes < 1 || *bytes > mostShownBytes)
            return call.fail(L"'%s' is no number of bytes from 1 to %d", call[2], mostShownBytes);
        const Handle_T<File> file = openToRead(call, call[1]);
        if (file.isNull())
            return false;
        int offset = 0;
        const auto show = [&call, &offset](const void* piece, int count) {
            orvi::Buffer line(count);
            std::memcpy(line.getBuffer(), piece, static_cast<std::size_t>(count));
            call.say(L"%08x %s", offset, line.convertToHex().getBuffer());
            offset += count;
            return true;
        };
        return readPieces(call, *file, static_cast<int>(*bytes), hexLineBytes, show);
    }

    /** The bytes go through a queue in memory: what one side writes and the other takes may differ in size.
     */
    bool copy(const Call& call)
    {
        const Handle_T<File> from = openToRead(call, call[1]);
        if (from.isNull())
            return false;
        const Handle_T<File> to = File::createInstance();
        const String target = resolve(call[2]);
        if (!to->open(target, File::writeOnly | File::create | File::exclusive,
                      File::permitRead | File::permitWrite))
            return call.fail(L"cannot create '%s': %s", call[2], File::getLastError());
        BegunFile begun(target);

        const Handle_T<MemoryStream> queue = MemoryStream::createInstance();
        orvi::InputStream input(queue);
        orvi::OutputStream output(to);
        const auto move = [&](const void* piece, int count) {
            if (queue->write(piece, count) != count)
                return call.fail(L"out of memory");
            output << input; // all that the queue has; throws an Exception when the file does not take it
            return true;
        };
        if (!readAll(call, *from, move))
            return false;
        const int copied = to->getPosition();
        if (to->setPosition(0) != 0) // only now is everything out of the file's own buffer
            return call.fail(L"cannot write '%s' to its end: %s", call[2], File::getLastError());
        begun.complete();
        call.say(L"%d bytes copied", copied);
        return true;
    }

    bool remove(const Call& call)
    {
        // A directory does not open, and so is not removed either.
        if (openToRead(call, call[1]).isNull())
            return false;
        if (!deleteFile(resolve(call[1])))
            return call.fail(L"cannot remove '%s': %s", call[1], File::getLastError());
        return true;
    }

    bool scan(const Call& call)
    {
        const String directory = resolveDirectory(call);
        if (directory.isEmpty())
            return false;
        std::vector<const wchar_t*> extensions;
        for (int i = 2; i <= call.arguments(); ++i)
            extensions.push_back(call[i]);
        extensions.push_back(nullptr);
        NameList list(call, *this);
        orvi::scanFiles({&list, &NameList::add}, directory, extensions.data(), true);
        return list.finish();
    }

    bool dirs(const Call& call)
    {
        const String directory = resolveDirectory(call);
        if (directory.isEmpty())
            return false;
        std::vector<String> names;
        orvi::scanDirectories(directory, names);
        NameList list(call, *this);
        for (const String& name : names)
            list.add(name);
        return list.finish();
    }
};

} // namespace

Handle_T<AppBox> createFilesBox(const wchar_t* appName, const wchar_t* parameters)
{
    return new FilesBox(appName, parameters);
}

} // namespace apphost
