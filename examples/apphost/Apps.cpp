#include "Apps.h"

namespace apphost {

std::span<const AppKind> appKinds()
{
    static constexpr AppKind kinds[] = {
        {L"files", createFilesBox, L"the directory that relative paths start from"},
        {L"time", createTimeBox, L"the zone in which times are shown, such as Etc/GMT-8"},
        {L"classes", createClassesBox, L""},
        {L"counter", createCounterBox, L"the milliseconds between two counts"},
        {L"documents", createDocumentsBox, L""},
        {L"objects", createObjectsBox, L""},
        {L"talk", createTalkBox, L"the channel on which two of them talk to each other"},
        {L"uuid", createUuidBox, L""},
    };
    return kinds;
}

} // namespace apphost
