#pragma once
#include "Link.h"
#include "Options.h"

#include <memory>

namespace exchange {

/** One end of the conversation. */
class Side {
public:
    virtual ~Side() = default;
    /** Goes on until all is said. Throws Exception, with a Status as its code, when that will not be. */
    virtual void talk(Link& link) = 0;
    /** How far it came: a line for the user. */
    virtual orvi::String result() const = 0;
};

/** All that a main function does: takes the options, connects, lets the side talk, tells the user, and gives the exit
    status. */
int run(int argc, char** argv, std::unique_ptr<Side> (*makeSide)(const Options& options));

} // namespace exchange
