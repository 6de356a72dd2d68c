#pragma once

namespace apphost {

/** From here on the first Ctrl-C only sets a mark, as does a request to end from outside (SIGTERM); a second
    one ends the program as usual. */
void catchInterrupts();
bool interrupted();
/** Readable from then on; -1 when there is none. */
int interruptDescriptor();

} // namespace apphost
