#pragma once
#include <orvi/core/Log.h>

namespace apphost {

/** Shows the lines of the log on the standard error output, while it lives. */
class LogPrinter : public orvi::LogListener {
public:
    LogPrinter() { orvi::Log::addListener(this); }
    ~LogPrinter() override { orvi::Log::removeListener(this); }
    LogPrinter(const LogPrinter&) = delete;
    LogPrinter& operator=(const LogPrinter&) = delete;

    const wchar_t* getName() override { return L"stderr"; }
    bool setparam(const wchar_t*) override { return false; }
    void error(const wchar_t* text) override;
    void warning(const wchar_t* text) override;
    void message(const wchar_t* text) override;
    void debug(const wchar_t* text) override;
    void whistle(bool success) override;
};

} // namespace apphost
