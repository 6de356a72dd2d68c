#pragma once
#include "Commands.h"

#include <orvi/core/App.h>

namespace apphost {

/** An application with a table of commands: what the applications here have in common. A subclass gives the
    table, and one method for each of its rows:

        TimeBox(const String& appName, const String& parameters)
            : CommandBox(appName, parameters, {{L"now", L"", L"the time", 0, 0, method(this, &TimeBox::now)}})

    Methods run on the box's own thread, one after the other: the state of a box needs no lock. */
class CommandBox : public orvi::AppBox {
public:
    bool init() override;
    bool dosamething(orvi::AppPipe* pipe, const wchar_t* text) override;
    void onException(unsigned long code) override;
    bool docmd(orvi::AppPipe* pipe, wchar_t** argv, int argc) override;

protected:
    CommandBox(const orvi::String& appName, const orvi::String& parameters, std::vector<Command> commands);

    /** Whether somebody has asked the box to end: long work looks here and gives up. */
    bool isEnding() const { return getState() != STATE_RUNNING; }

private:
    CommandTable _commands;
    const wchar_t* _text = nullptr; // under way: docmd itself gets the words alone
    orvi::AppPipe* _pipe = nullptr; // that it came from
};

} // namespace apphost
