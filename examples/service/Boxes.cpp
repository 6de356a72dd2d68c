#include "Boxes.h"

#include <Apps.h>

#include <algorithm>
#include <iterator>

namespace service {

namespace {

// Those that leave the machine's files alone: a daemon may have all rights.
constexpr const wchar_t* names[] = {L"counter", L"time", L"uuid"};

const apphost::AppKind* findKind(const orvi::String& name)
{
    const auto kinds = apphost::appKinds();
    const auto found =
        std::find_if(kinds.begin(), kinds.end(), [&](const auto& kind) { return name == kind.name; });
    return found != kinds.end() ? &*found : nullptr;
}

} // namespace

bool startBoxes()
{
    return std::all_of(std::begin(names), std::end(names), [](const wchar_t* name) {
        const apphost::AppKind* kind = findKind(name);
        return kind != nullptr && orvi::setUpApp(name, kind->factory) &&
               !orvi::startApp(name, name, L"").isNull();
    });
}

void endBoxes()
{
    for (const wchar_t* name : names)
        orvi::exitApp(orvi::getApp(name)); // null, which does nothing, for one that did not start
}

} // namespace service
