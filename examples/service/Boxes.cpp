#include "Boxes.h"

#include <orvi/core/App.h>
#include <orvi/core/Encoding.h>
#include <orvi/core/Tick.h>

namespace service {

using orvi::AppBox;
using orvi::AppPipe;
using orvi::Handle_T;
using orvi::String;

namespace {

constexpr const wchar_t* names[] = {L"counter", L"echo"};

/** A box that leaves the processor alone while nobody asks for anything. */
class QuietBox : public AppBox {
public:
    QuietBox(const String& appName, const String& parameters)
        : AppBox(appName, parameters)
    {}

    bool init() override { return AppBox::init() && orvi::Yield::createInstance(10)->start(this); }
};

/** "count": one more than the last time. "reset": from the start. */
class CounterBox final : public QuietBox {
public:
    using QuietBox::QuietBox;

    bool docmd(AppPipe* pipe, wchar_t** argv, int argc) override
    {
        const String command = argv[0];
        if (argc != 1 || (command != L"count" && command != L"reset"))
            return false;
        _count = command == L"count" ? _count + 1 : 0;
        return pipe->write(orvi::convertToString(_count));
    }

private:
    int _count = 0;
};

/** "say WORD...": a line for each word. */
class EchoBox final : public QuietBox {
public:
    using QuietBox::QuietBox;

    bool docmd(AppPipe* pipe, wchar_t** argv, int argc) override
    {
        if (String(argv[0]) != L"say")
            return false;
        for (int i = 1; i < argc; ++i)
            pipe->write(argv[i]);
        return true;
    }
};

template <class Box>
Handle_T<AppBox> create(const wchar_t* appName, const wchar_t* parameters)
{
    return new Box(appName, parameters);
}

} // namespace

bool startBoxes()
{
    orvi::setUpApp(L"counter", create<CounterBox>);
    orvi::setUpApp(L"echo", create<EchoBox>);
    for (const wchar_t* name : names) {
        if (orvi::startApp(name, name, L"").isNull())
            return false;
    }
    return true;
}

void endBoxes()
{
    for (const wchar_t* name : names)
        orvi::exitApp(orvi::getApp(name)); // null, which does nothing, for one that did not start
}

} // namespace service
