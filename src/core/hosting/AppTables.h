#pragma once

namespace orvi {

class AppBox;

/** The tables of factories and running applications, as the boxes see them. */
struct AppTables {
    /** Takes the application of the box's name out, and the box out of those that are shut down at the
        process's end. */
    static void leave(AppBox* box);
};

} // namespace orvi
