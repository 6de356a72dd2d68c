#pragma once

namespace exchange {

/** How a program ends: its exit status, and the code of the exceptions that lead there. */
enum Status {
    allRight = 0,
    ownFailure = 1, // a wrong call, no connection
    peerGone = 2,
    peerWrong = 3 // it does not keep to the protocol
};

} // namespace exchange
