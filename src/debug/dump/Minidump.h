#pragma once
#include <cstddef>
#include <cstdint>

/** The records of a minidump file, little-endian, as debuggers read them. */
namespace orvi::debug::minidump {

enum class StreamType : std::uint32_t {
    ThreadList = 3,
    ModuleList = 4,
    MemoryList = 5,
    Exception = 6,
    SystemInfo = 7,
    MiscInfo = 15,
    ThreadNames = 24,
    LinuxProcStatus = 0x47670004,
    LinuxCommandLine = 0x47670006,
    LinuxAuxv = 0x47670008,
    LinuxMaps = 0x47670009,
};

#pragma pack(push, 4)

/** Where in the file something lies. */
struct Location {
    std::uint32_t size;
    std::uint32_t offset;
};

struct Header {
    static constexpr std::uint32_t expectedSignature = 0x504D444D; // "MDMP"
    static constexpr std::uint32_t expectedVersion = 0xA793;

    std::uint32_t signature;
    std::uint32_t version;
    std::uint32_t streamCount;
    std::uint32_t directoryOffset;
    std::uint32_t checksum;
    std::uint32_t time;
    std::uint64_t flags;
};
static_assert(sizeof(Header) == 32);

struct DirectoryEntry {
    StreamType type;
    Location location;
};
static_assert(sizeof(DirectoryEntry) == 12);

struct MemoryRange {
    std::uint64_t start;
    Location location;
};
static_assert(sizeof(MemoryRange) == 16);

struct Thread {
    std::uint32_t id;
    std::uint32_t suspendCount;
    std::uint32_t priorityClass;
    std::uint32_t priority;
    std::uint64_t environmentBlock;
    MemoryRange stack;
    Location context;
};
static_assert(sizeof(Thread) == 48);

struct ThreadName {
    std::uint32_t id;
    std::uint64_t nameOffset;
};
static_assert(sizeof(ThreadName) == 12);

struct VersionInfo {
    static constexpr std::uint32_t expectedSignature = 0xFEEF04BD;
    static constexpr std::uint32_t expectedVersion = 0x10000;

    std::uint32_t signature;
    std::uint32_t version;
    std::uint32_t fileVersion[2]; // four numbers of 16 bits, the first one highest
    std::uint32_t productVersion[2];
    std::uint32_t unused[7];
};
static_assert(sizeof(VersionInfo) == 52);

struct Module {
    std::uint64_t base;
    std::uint32_t size;
    std::uint32_t checksum;
    std::uint32_t time;
    std::uint32_t nameOffset;
    VersionInfo version;
    Location buildId; // a BuildId
    Location miscellaneous;
    std::uint64_t reserved[2];
};
static_assert(sizeof(Module) == 108);

/** The identity of an ELF file: the signature and the bytes of its build id. */
struct BuildId {
    static constexpr std::uint32_t expectedSignature = 0x4270454C;

    std::uint32_t signature;
    unsigned char bytes[64];
};

struct Exception {
    std::uint32_t threadId;
    std::uint32_t alignment;
    std::uint32_t code;  // the signal. lldb 14 hangs on some that it does not know
    std::uint32_t flags; // si_code
    std::uint64_t record;
    std::uint64_t address;
    std::uint32_t parameterCount;
    std::uint32_t unused;
    std::uint64_t parameters[15];
    Location context;
};
static_assert(sizeof(Exception) == 168);

struct SystemInfo {
    static constexpr std::uint16_t amd64 = 9;
    static constexpr std::uint32_t linuxPlatform = 0x8201;

    std::uint16_t architecture;
    std::uint16_t processorLevel;    // family
    std::uint16_t processorRevision; // model and stepping, a byte each
    std::uint8_t processorCount;
    std::uint8_t productType;
    std::uint32_t majorVersion;
    std::uint32_t minorVersion;
    std::uint32_t buildNumber;
    std::uint32_t platform;
    std::uint32_t versionTextOffset;
    std::uint16_t suite;
    std::uint16_t reserved;
    std::uint32_t vendor[3];
    std::uint32_t versionInformation;
    std::uint32_t featureInformation;
    std::uint32_t extendedFeatures;
};
static_assert(sizeof(SystemInfo) == 56);

struct MiscInfo {
    static constexpr std::uint32_t hasProcessId = 1;

    std::uint32_t size;
    std::uint32_t flags;
    std::uint32_t processId;
    std::uint32_t createTime;
    std::uint32_t userTime;
    std::uint32_t kernelTime;
};
static_assert(sizeof(MiscInfo) == 24);

#pragma pack(pop)

/** The registers of a thread. */
struct Context {
    // AMD64 with control, integer, segment and floating-point registers. Without the integer ones readers
    // take rbp for 0 and show wrong variables.
    static constexpr std::uint32_t allRegisters = 0x10000F;

    std::uint64_t parameterHomes[6];
    std::uint32_t flags;
    std::uint32_t mxcsr;
    std::uint16_t cs, ds, es, fs, gs, ss;
    std::uint32_t eflags;
    std::uint64_t debugRegisters[6];
    std::uint64_t rax, rcx, rdx, rbx, rsp, rbp, rsi, rdi;
    std::uint64_t r8, r9, r10, r11, r12, r13, r14, r15;
    std::uint64_t rip;
    unsigned char floatingPoint[512]; // as FXSAVE stores it
    unsigned char vectors[416];
    std::uint64_t debugControl[6];
};
static_assert(sizeof(Context) == 1232);
static_assert(offsetof(Context, flags) == 0x30 && offsetof(Context, rsp) == 0x98);
static_assert(offsetof(Context, rip) == 0xF8 && offsetof(Context, floatingPoint) == 0x100);

} // namespace orvi::debug::minidump
