#include <orvi/core/File.h>

#include <cerrno>
#include <cstddef>

namespace orvi {

namespace {

/** The rows, in an order of their own that agrees with the system's numbers up to 34. */
enum Row {
    rowDeadlock = 36,
    rowNameTooLong = 38,
    rowNoLocks = 39,
    rowNoFunction = 40,
    rowNotEmpty = 41,
    rowIllegal = 42
};

constexpr const wchar_t* g_texts[] = {
    L"",
    L"EPERM: Operation not permitted.",
    L"ENOENT: No such file or directory.",
    L"ESRCH: No such process.",
    L"EINTR: Interrupted function.",
    L"EIO: I/O error.",
    L"ENXIO: No such device or address.",
    L"E2BIG: Argument list too long.",
    L"ENOEXEC: Exec format error.",
    L"EBADF: Bad file number.",
    L"ECHILD: No spawned processes.",
    L"EAGAIN: No more processes or not enough memory or maximum nesting level reached.",
    L"ENOMEM: Not enough memory.",
    L"EACCES: Permission denied.",
    L"EFAULT: Bad address.",
    L"UNKNOWN: Unknown error(15).",
    L"EBUSY: Device or resource busy.",
    L"EEXIST: File exists.",
    L"EXDEV: Cross-device link.",
    L"ENODEV: No such device.",
    L"ENOTDIR: Not a directory.",
    L"EISDIR: Is a directory.",
    L"EINVAL: Invalid argument.",
    L"ENFILE: Too many files open in system.",
    L"EMFILE: Too many open files.",
    L"ENOTTY: Inappropriate I/O control operation.",
    L"UNKNOWN: Unknown error(26).",
    L"EFBIG: File too large.",
    L"ENOSPC: No space left on device.",
    L"ESPIPE: Invalid seek.",
    L"EROFS: Read-only file system.",
    L"EMLINK: Too many links.",
    L"EPIPE: Broken pipe.",
    L"EDOM: Math argument.",
    L"ERANGE: Result too large.",
    L"UNKNOWN: Unknown error(35).",
    L"EDEADLK: Resource deadlock would occur.",
    L"UNKNOWN: Unknown error(37).",
    L"ENAMETOOLONG: Filename too long.",
    L"ENOLCK: No locks available.",
    L"ENOSYS: Function not supported.",
    L"ENOTEMPTY: Directory not empty.",
    L"EILSEQ: Illegal byte sequence.",
};
static_assert(sizeof g_texts / sizeof *g_texts == rowIllegal + 1);

constexpr int lastCommonRow = 34;
static_assert(ERANGE == lastCommonRow && EPIPE == 32 && EAGAIN == 11);

} // namespace

const wchar_t* File::getLastError()
{
    switch (const int error = errno) {
    case EDEADLK:
        return g_texts[rowDeadlock];
    case ENAMETOOLONG:
        return g_texts[rowNameTooLong];
    case ENOLCK:
        return g_texts[rowNoLocks];
    case ENOSYS:
        return g_texts[rowNoFunction];
    case ENOTEMPTY:
        return g_texts[rowNotEmpty];
    case EILSEQ:
        return g_texts[rowIllegal];
    case 80: // a cut text, for callers that report one; no operation on files fails with this number
        return L"STRUNCATE: String was truncated";
    default:
        return error >= 0 && error <= lastCommonRow ? g_texts[error] : L"UNKNOWN: Unknown error";
    }
}

} // namespace orvi
