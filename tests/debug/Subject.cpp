#include "Subject.h"

namespace subject {

namespace {

enum class Level : short { Low = -3 };
enum Plain { Five = 5 };
using Coordinates = const Point;
using Stop = void (*)();

void parameters(Stop stop, bool yes, unsigned char byte, short small, int number, unsigned positive,
                unsigned long long bits, float fraction, double real, Level level, Plain plain,
                const char* text, Coordinates* object, const Point& reference, void* anything, int)
{
    stop();
}

void variables(Stop stop)
{
    static int counter = 42;
    Point point{1, 2};
    Point** pointerToPointer = nullptr;
    volatile Coordinates& fixed = point;
    int numbers[3] = {1, 2, 3};
    int(*pointerToNumbers)[3] = &numbers;
    Point grid[2][3] = {};
    char name[8] = "name";
    const char full[3] = {'a', 'b', 'c'};
    const char* special = "\"a\\b\"\n\x7f\xe4";
    const char* missing = nullptr;
    const char* wild = reinterpret_cast<const char*>(16);
    char veryLong[300];
    for (char& letter : veryLong)
        letter = 'x';
    Plain* pointerToPlain = nullptr;
    int** pointerToPointerToNumber = nullptr;
    int Point::*member = &Point::y;
    long double precise = -1.25L;
    {
        int inner = -1;
        stop();
        inner += counter;
    }
    {
        int elsewhere = 7;
        ++elsewhere;
    }
}

namespace hidden {
template <class T>
struct Box {
    T content;
    Box operator+(Stop stop) const
    {
        stop();
        return *this;
    }
    template <class U>
    explicit operator U() const
    {
        return (*this + after).content;
    }
    Stop after;
};
} // namespace hidden

template <int N>
int count(Stop stop)
{
    return N + static_cast<int>(hidden::Box<int>{N, stop});
}

struct Room {
    Stop stop;
    int operator()(const char*) const { return count<3>(stop); }
    bool operator<(int) const { return (*this)("") > 0; }
};

[[gnu::always_inline]] inline int half(int value, Stop stop)
{
    int rest = value % 2;
    stop();
    return value / 2 + rest;
}

} // namespace

void showValues(Stop stop)
{
    static Point there{3, 4};
    parameters(stop, true, 0xff, -2, -7, 0xfffffff9u, 0xabcdef0123456789u, 1.5f, -2.25, Level::Low, Five,
               "some text", &there, there, &there, 0);
    variables(stop);
}

void showNames(Stop stop)
{
    const auto lambda = [stop](int limit) { return Room{stop} < limit; };
    lambda(1);
}

void showInlined(Stop stop)
{
    int before = 8;
    before += half(5, stop);
}

int recurse(int depth, Stop stop)
{
    if (depth > 0)
        return recurse(depth - 1, stop) + 1;
    stop();
    return 0;
}

} // namespace subject
