/** A module that brings the host one more kind of application: "load echo.so", then "start echo". It needs
    the library alone, and nothing of the program that loads it. */

#include <orvi/core/App.h>
#include <orvi/core/Tick.h>

namespace {

using orvi::AppPipe;
using orvi::Handle_T;
using orvi::String;

const wchar_t kindName[] = L"echo";

/** Says again what it is told. */
class EchoBox : public orvi::AppBox {
public:
    static Handle_T<orvi::AppBox> create(const wchar_t* appName, const wchar_t* parameters)
    {
        return new EchoBox(appName, parameters);
    }

    bool init() override
    {
        // The loop never blocks by itself: without this task it would keep a processor busy.
        return AppBox::init() && orvi::Rest::createInstance()->start(this);
    }

    bool docmd(AppPipe* pipe, wchar_t** argv, int argc) override
    {
        const String command = argv[0];
        if (command == L"help")
            return pipe->write(L"say TEXT...                      the words, each behind PARAMETERS");
        if (command != L"say" || argc < 2)
            return false;
        for (int i = 1; i < argc; ++i)
            pipe->write(getParameters() + argv[i]);
        return true;
    }

private:
    using AppBox::AppBox;
};

/** The kind comes with the module and goes with it. */
class Registration {
public:
    Registration()
        : _ours(orvi::setUpApp(kindName, EchoBox::create))
    {}
    ~Registration()
    {
        if (_ours) // else another module has had the name before
            orvi::tearDownApp(kindName);
    }
    Registration(const Registration&) = delete;
    Registration& operator=(const Registration&) = delete;

private:
    bool _ours;
};

const Registration g_registration;

} // namespace

/** What the host shows of the kind; a module without this is none of the host's. */
extern "C" ORVI_API const wchar_t* apphostDescribeKind()
{
    return L"echo; PARAMETERS: what stands in front of each word";
}
