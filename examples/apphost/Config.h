#pragma once
#include <orvi/core/String.h>

#include <vector>

namespace apphost {

/** An application to start. */
struct Start {
    orvi::String name;
    orvi::String kind;
    orvi::String parameters;
};

/** Reads from a file, or another archive URL, which applications to start:

        [apphost]
        apps = clock fast        their names, of ASCII letters, digits and _
        clock = time Etc/GMT-8   for each name a line: its kind, and parameters if it wants some
        fast = counter 10

    All keys are in one section and differ by name, since a key that is missing there would be taken from a later
    section. False, with the reason, when something is wrong. */
bool readConfig(const orvi::String& url, std::vector<Start>& starts, orvi::String& reason);

} // namespace apphost
