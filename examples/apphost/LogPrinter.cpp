#include "LogPrinter.h"

#include <orvi/core/Encoding.h>

#include <cstdio>

namespace apphost {

namespace {

void print(const char* level, const wchar_t* text)
{
    std::fprintf(stderr, "%s: %s\n", level, orvi::StringHelper::wideToUtf8(text).getBuffer());
}

} // namespace

void LogPrinter::error(const wchar_t* text) { print("error", text); }

void LogPrinter::warning(const wchar_t* text) { print("warning", text); }

void LogPrinter::message(const wchar_t* text) { print("message", text); }

void LogPrinter::debug(const wchar_t* text) { print("debug", text); }

void LogPrinter::whistle(bool success) { print("whistle", success ? L"done" : L"failed"); }

} // namespace apphost
