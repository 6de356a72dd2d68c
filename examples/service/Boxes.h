#pragma once

namespace service {

/** Registers and starts some of apphost's applications, each under the name of its kind; false when one does not
    start. */
bool startBoxes();
void endBoxes();

} // namespace service
