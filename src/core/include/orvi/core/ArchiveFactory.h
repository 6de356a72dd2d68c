#pragma once
#include <orvi/core/Archive.h>
#include <orvi/core/String.h>

namespace orvi {

class MD5Checksum;

/** Opens archives by URL. Derive from it to add a scheme of your own.

    A URL is a scheme, "://" and a rest; a text without that, or with nothing in front of it, is a path of the
    scheme "file". Schemes compare exactly. Behind a path a "?" and arguments in the form of a command line may
    follow. The library itself knows

        dir/name.txt                   the file, for reading
        file://dir/name.txt?position=5 the same, from its sixth byte on
        memory://                      a new, empty MemoryFile
        memory://name?position=5<<URL  a MemoryFile with all that the archive of that URL gives, at position
                                       5; both the name, which means nothing, and the query may be left out

    The registry is for any thread and at any time, also before and after the static objects of the library
    have their turn; its own two schemes go when the library does. It borrows the factories. */
class ORVI_API ArchiveFactory {
public:
    /** For the scheme `archiveType`, without "://". */
    explicit ArchiveFactory(const String& archiveType);
    /** A copy has the scheme, and is not set up. */
    ArchiveFactory(const ArchiveFactory& other);
    ArchiveFactory& operator=(const ArchiveFactory& other);
    /** Takes the factory out of the registry if it is still there, as tearDownArchiveFactory does. */
    virtual ~ArchiveFactory();

    const String& getArchiveType() const noexcept { return _archiveType; }

    /** Makes the archive for what follows "://"; a null handle on failure. Any thread, without a lock. */
    virtual Unknown::Handle_T<Archive> open(const String& path) = 0;

    /** Puts the factory in front of all others: one of the same scheme is hidden until this one is torn down.
        Keep it alive until then. Null and a factory that is set up already are ignored. Always true. */
    static bool setUpArchiveFactory(ArchiveFactory* factory);
    /** Takes it out, if it is there. Nobody may be using it any more. Always true. */
    static bool tearDownArchiveFactory(ArchiveFactory* factory);
    /** The newest factory of the scheme, or null. */
    static ArchiveFactory* getArchiveFactory(const String& archiveType);

    /** Opens the URL; a null handle on failure, lack of memory included. An unknown scheme says nothing in the
        log, URLs more than 64 deep in each other are an error there. */
    static Unknown::Handle_T<Archive> openArchive(const String& url);
    /** Splits at the first "?". Without one the query is empty. Throws std::bad_alloc when a part cannot be
        made. */
    static void parseUrl(const String& url, String& path, String& query);

private:
    static void setUpBuiltIns();
    static void tearDownBuiltIns();
    static bool link(ArchiveFactory& factory);

    String _archiveType;
    ArchiveFactory* _next = nullptr;  // the one set up before it
    ArchiveFactory** _link = nullptr; // what leads to it in the registry; null when it is not there
};

/** The digest of the whole archive, whose position is put back. False when the archive fails or delivers less
    than its size, and for null. */
ORVI_API bool calcArchiveMd5(Archive* archive, MD5Checksum& checksum);
/** The digest of a file; false, and a line in the log, when it does not open. */
ORVI_API bool calcFileMd5(const wchar_t* path, MD5Checksum& checksum);

} // namespace orvi
