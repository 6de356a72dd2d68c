#pragma once

namespace service {

/** Sends a command to the daemon at a socket file and prints the answer. The program's exit status. */
int talk(const char* path, const char* command);

} // namespace service
