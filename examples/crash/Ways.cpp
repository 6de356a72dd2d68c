#include "Ways.h"

#include <orvi/core/Core.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <new>
#include <stdexcept>
#include <sys/mman.h>
#include <thread>
#include <vector>

namespace {

// What the compiler must not see through.
int* volatile nowhere = nullptr;
volatile int zero = 0;
volatile std::size_t tooMuch = 64;
void (*volatile noFunction)(int) = nullptr;

struct Ship {
    const char* name;
    int cargo;
    double speed;
};

void writeNowhere(int depth)
{
    Ship ship{"Argo", depth * 10, 7.5};
    const char* harbour = "Iolkos";
    const double distance = 1.25;
    ship.cargo += static_cast<int>(std::strlen(harbour)) + static_cast<int>(distance);
    *nowhere = ship.cargo;
}

enum class Wind : short { Calm, Breeze = 3, Gale = -8 };

/** Has a value of every kind for the report to show. */
void carryCargo(bool hasSail, char deck, signed char below, unsigned char barrels, short oars,
                unsigned short ropes, int depth, unsigned int coins, long miles, unsigned long long stars,
                float draught, double speed, long double bearing, wchar_t mark, char16_t sign, Wind wind,
                const Ship& ship, const char* name, const wchar_t* wideName, const int* nothing,
                void (*next)(int), const Ship* const* fleet)
{
    const char label[16] = "wine \"red\"";
    const int weights[3] = {depth, 2, 3};
    const double lengths[2] = {draught, speed};
    const auto measure = [&] { return weights[0] + static_cast<int>(lengths[1]); };
    *nowhere = measure() + label[0] + hasSail + deck + below + barrels + oars + ropes;
    std::printf("%u %ld %llu %Lf %d %d %d %s %p %p %p %p %p\n", coins, miles, stars, bearing, mark, sign,
                static_cast<int>(wind), ship.name, static_cast<const void*>(name),
                static_cast<const void*>(wideName), static_cast<const void*>(nothing),
                reinterpret_cast<void*>(next), static_cast<const void*>(fleet));
}

void showValues(int depth)
{
    const Ship ship{"Argo", 3, 7.5};
    const Ship* const flagship = &ship;
    carryCargo(true, 'd', -2, 200, -3, 60000, depth, 4000000000U, -5, 0xABCDEF0123456789U, 1.5F, -2.25,
               359.5L, L'M', u'S', Wind::Gale, ship, "Argo", L"Argo", nullptr, writeNowhere, &flagship);
}

class Sailor {
public:
    virtual ~Sailor() = default;
    virtual int row() { return _strokes; }

private:
    int _strokes = 3;
};

/** The object's memory is given back to the system, so that the mistake shows. */
void useAfterEnd(int)
{
    void* memory = mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED)
        return;
    auto* sailor = new (memory) Sailor;
    sailor->~Sailor();
    munmap(memory, 4096);
    std::printf("%d\n", sailor->row());
}

int sink(int depth, volatile char* above)
{
    volatile char water[512];
    water[0] = above == nullptr ? 'a' : *above;
    return depth < 0 ? water[0] : sink(depth + 1, water) + water[0];
}

void overflowStack(int depth) { std::printf("%d\n", sink(depth, nullptr)); }

void divide(int depth) { std::printf("%d\n", depth / zero); }

void abortProgram(int) { std::abort(); }

void throwObject(int depth)
{
    std::vector<int> crew(static_cast<std::size_t>(depth));
    throw std::runtime_error("man overboard");
}

void throwOnThread(int depth) { std::thread(throwObject, depth).join(); }

/** Writes over what the heap keeps in front of a block, and asks for more. */
void breakHeap(int)
{
    constexpr std::size_t size = 4000; // beyond what a thread keeps for itself
    char* block = static_cast<char*>(std::malloc(size));
    char* volatile next = static_cast<char*>(std::malloc(size));
    std::memset(block, 'x', size + tooMuch);
    std::free(next);
    for (int i = 0; i < 1000; ++i)
        nowhere = static_cast<int*>(std::malloc(size));
}

void callNoFunction(int depth) { noFunction(depth); }

void runIllegalInstruction(int) { asm volatile("ud2"); }

void throwFromNoexcept(int depth) noexcept { throwObject(depth); } // NOLINT(bugprone-exception-escape)

void askForReport(int depth)
{
    const long verdict = orvi::Exception::DealExceptionInformation(nullptr);
    std::printf("asked in depth %d, and got %ld\n", depth, verdict);
}

void faultOnManyThreads(int depth)
{
    constexpr int count = 8;
    static std::atomic<int> ready = 0;
    std::vector<std::thread> threads;
    threads.reserve(count);
    for (int i = 0; i < count; ++i) {
        threads.emplace_back([=] {
            ++ready;
            while (ready < count)
                std::this_thread::yield();
            writeNowhere(depth + i);
        });
    }
    for (std::thread& thread : threads)
        thread.join();
}

void openTooManyFiles(int depth)
{
    while (open("/dev/null", O_RDONLY | O_CLOEXEC) >= 0) {
    }
    writeNowhere(depth);
}

constexpr Way ways[] = {
    {"null", "writes to address 0", writeNowhere},
    {"values", "writes to address 0, among variables of every kind", showValues},
    {"ended", "uses an object whose memory is gone", useAfterEnd},
    {"overflow", "calls itself until the stack is full", overflowStack},
    {"division", "divides by 0", divide},
    {"abort", "calls abort", abortProgram},
    {"throw", "throws what nobody catches", throwObject},
    {"thread", "throws on another thread", throwOnThread},
    {"allocator", "breaks the heap", breakHeap},
    {"function", "calls a null function", callNoFunction},
    {"illegal", "runs an illegal instruction", runIllegalInstruction},
    {"noexcept", "throws out of a noexcept function", throwFromNoexcept},
    {"asked", "asks for a report, and goes on", askForReport},
    {"files", "writes to address 0 when no more file can be opened", openTooManyFiles},
    {"many", "has faults on eight threads at once", faultOnManyThreads},
};

} // namespace

const Way* findWay(const char* name)
{
    for (const Way& way : ways) {
        if (std::strcmp(way.name, name) == 0)
            return &way;
    }
    return nullptr;
}

void printWays()
{
    for (const Way& way : ways)
        std::printf("  %-10s %s\n", way.name, way.description);
}
