#pragma once

namespace orvi {

/** What a service manager may ask for. Others than these are answered with the state as it is. */
enum ServiceControl : unsigned long { SERVICE_STOP = 1, SERVICE_SHUTDOWN = 5 };

/** Does what the service manager asks for. */
void handleServiceControl(unsigned long control);

} // namespace orvi
