#pragma once

namespace orvi {

/** How often a class, its properties or a converter could not join its registry for want of memory. What joins does so in
    static initialisers, and nothing may be thrown through the loader that runs them: it would keep its locks and take the
    module for loaded. Who loads a module looks here whether all of it has come. */
unsigned int missedRegistrations() noexcept;
/** Counts, and leaves a line in the log. */
void missRegistration(const wchar_t* what);

} // namespace orvi
