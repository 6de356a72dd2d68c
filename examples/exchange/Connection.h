#pragma once
#include "DescriptorIO.h"
#include "Options.h"

namespace exchange {

/** Connects as the options tell, and waits for the peer to come. Throws Exception with Status::ownFailure. */
orvi::Handle_T<DescriptorIO> connect(const Options& options);

} // namespace exchange
