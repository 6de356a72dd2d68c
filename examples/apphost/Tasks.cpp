#include "Tasks.h"

#include <orvi/core/Encoding.h>

namespace apphost {

using orvi::String;

ORVI_DEFINE_PROPERTY(Person)
{
    table.add(L"name", &Person::name);
    table.add(L"mail", &Person::mail);
}

ORVI_DEFINE_PROPERTY(Task)
{
    table.add(L"id", &Task::id);
    table.add(L"title", &Task::title);
    table.add(L"due", &Task::due, L"in local time, as 2022-6-27 09:58:45");
    table.add(L"priority", &Task::priority, L"1 is the highest");
    table.add(L"labels", &Task::labels);
    table.add(L"card", &Task::card, L"where it lies on the board");
    table.add(L"owner", &Task::owner);
}

ORVI_DEFINE_PROPERTY(Bug)
{
    table.add(L"version", &Bug::version, L"that has it");
    table.add(L"steps", &Bug::steps, L"to see it");
    table.add(L"confirmed", &Bug::confirmed);
}

ORVI_DEFINE_PROPERTY(Meeting)
{
    table.add(L"room", &Meeting::room);
    table.add(L"minutes", &Meeting::minutes);
    table.add(L"guests", &Meeting::guests);
}

ORVI_DEFINE_PROPERTY(Project)
{
    table.add(L"budget", &Project::budget);
    table.add(L"tasks", &Project::tasks);
}

String Task::summary() const
{
    String text;
    text.format(L"'%s', priority %d, due %s", title.getBuffer(), priority,
                due.convertToString(false).getBuffer());
    return owner.isNull() ? text : text + L", of " + owner->name;
}

String Bug::summary() const
{
    return Task::summary() + (version.isEmpty() ? version : L", in " + version) +
           (confirmed ? L", confirmed" : L"");
}

String Meeting::summary() const
{
    String text;
    text.format(L", %d minutes, guests: %d", minutes, static_cast<int>(guests.size()));
    return Task::summary() + text;
}

String Project::summary() const
{
    String text;
    text.format(L", tasks: %d", static_cast<int>(tasks.size()));
    return Task::summary() + text;
}

} // namespace apphost
