#pragma once

namespace service {

/** Registers and starts the applications "counter" and "echo"; false when one does not start. */
bool startBoxes();
void endBoxes();

} // namespace service
