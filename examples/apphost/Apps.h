#pragma once
#include <orvi/core/App.h>

#include <span>

namespace apphost {

/** A kind of application that this program offers. */
struct AppKind {
    const wchar_t* name;
    orvi::AppFactory factory;
    const wchar_t* parameters; // what the text given at the start means; empty when it means nothing
};

std::span<const AppKind> appKinds();

orvi::Handle_T<orvi::AppBox> createClassesBox(const wchar_t* appName, const wchar_t* parameters);
orvi::Handle_T<orvi::AppBox> createCounterBox(const wchar_t* appName, const wchar_t* parameters);
orvi::Handle_T<orvi::AppBox> createDocumentsBox(const wchar_t* appName, const wchar_t* parameters);
orvi::Handle_T<orvi::AppBox> createFilesBox(const wchar_t* appName, const wchar_t* parameters);
orvi::Handle_T<orvi::AppBox> createObjectsBox(const wchar_t* appName, const wchar_t* parameters);
orvi::Handle_T<orvi::AppBox> createTalkBox(const wchar_t* appName, const wchar_t* parameters);
orvi::Handle_T<orvi::AppBox> createTimeBox(const wchar_t* appName, const wchar_t* parameters);
orvi::Handle_T<orvi::AppBox> createUuidBox(const wchar_t* appName, const wchar_t* parameters);

} // namespace apphost
