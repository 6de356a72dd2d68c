#pragma once

namespace service {

// Sockets with a name in the file system. All give -1, with the reason in errno, on failure.

/** Takes the place of a socket file that a dead process has left. Does not block. */
int listenAt(const char* path);
int connectTo(const char* path);

} // namespace service
